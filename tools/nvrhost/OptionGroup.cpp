#include "nvrhost/OptionGroup.h"

#include <array>
#include <sstream>
#include <stdexcept>

#include "kelvo/host_abi.h"

namespace nvrhost {
namespace {

struct Level {
  const char* name;
  std::uint32_t value;
};
constexpr std::array<Level, 6> kLevels{{{"trace", KELVO_LOG_TRACE},
                                        {"info", KELVO_LOG_INFO},
                                        {"warning", KELVO_LOG_WARNING},
                                        {"error", KELVO_LOG_ERROR},
                                        {"critical", KELVO_LOG_CRITICAL},
                                        {"none", KELVO_LOG_CRITICAL + 1}}};

}  // namespace

std::string WrappedHelp(const std::string& text) {
  constexpr std::size_t kWidth = 62;
  std::string result;
  std::size_t column = 0;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const bool breaks = column > 0 && column + 1 + word.size() > kWidth;
    if (column > 0) result += breaks ? '\n' : ' ';
    column = breaks ? word.size() : column + (column > 0 ? 1 : 0) + word.size();
    result += word;
  }
  return result;
}

void AddPluginOption(CLI::App& command, const std::string& group, std::string& plugin) {
  OptionGroup(command, group).Add("--plugin", plugin, "FILE", "the plug-in [beside this program]");
}

void AddLogOption(CLI::App& command, const std::string& group, std::string& level) {
  std::vector<std::string> names;
  names.reserve(kLevels.size());
  for (const auto& one : kLevels) names.emplace_back(one.name);
  OptionGroup(command, group)
      .AddChoice("--log", level, names,
                 "show the plug-in's log from this level: trace, info, warning, error, critical, "
                 "none");
}

std::uint32_t LogLevel(const std::string& name) {
  for (const auto& level : kLevels) {
    if (name == level.name) return level.value;
  }
  throw std::runtime_error("no log level \"" + name + "\"");
}

}  // namespace nvrhost
