#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nvrhost {

// Breaks a help text, which stands in the right-hand column.
[[nodiscard]] std::string WrappedHelp(const std::string& text);

// Adds options of one help group. Ranges are checked and not shown.
class OptionGroup {
 public:
  OptionGroup(CLI::App& toCommand, std::string name) : command(toCommand), group(std::move(name)) {}

  template <typename T>
  CLI::Option& Add(const char* name, T& value, const char* type, const std::string& help) {
    return *command.add_option(name, value, WrappedHelp(help))->type_name(type)->group(group);
  }
  // With its default in the help.
  template <typename T>
  CLI::Option& AddShown(const char* name, T& value, const char* type, const std::string& help) {
    return *Add(name, value, type, help).capture_default_str();
  }
  template <typename T>
  void AddNumber(const char* name, T& value, T low, T high, const char* type,
                 const std::string& help) {
    CLI::Validator range = CLI::Range(low, high);
    AddShown(name, value, type, help).check(range.description(""));
  }
  void AddChoice(const char* name, std::string& value, std::vector<std::string> choices,
                 const std::string& help) {
    CLI::Validator member = CLI::IsMember(std::move(choices));
    AddShown(name, value, "NAME", help).check(member.description(""));
  }
  void AddChoices(const char* name, std::vector<std::string>& value,
                  std::vector<std::string> choices, const std::string& help) {
    CLI::Validator member = CLI::IsMember(std::move(choices));
    AddShown(name, value, "NAMES", help).delimiter(',')->check(member.description(""));
  }

 private:
  CLI::App& command;
  const std::string group;
};

// Options that several verbs have.
void AddPluginOption(CLI::App& command, const std::string& group, std::string& plugin);
void AddLogOption(CLI::App& command, const std::string& group, std::string& level);

// Lowest level of a log line to show; throws std::runtime_error for a name that isn't one.
[[nodiscard]] std::uint32_t LogLevel(const std::string& name);

}  // namespace nvrhost
