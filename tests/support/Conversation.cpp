#include "tests/support/Conversation.h"

#include <fstream>
#include <map>
#include <sstream>

namespace testsupport {
namespace {

using Macros = std::map<std::string, std::string>;

// Replaces each [name argument] by the text of that name, in which # stands for the argument.
std::string Expand(const Macros& macros, std::string text) {
  for (std::size_t open = text.rfind('['); open != std::string::npos; open = text.rfind('[')) {
    const std::size_t close = text.find(']', open);
    std::istringstream call(text.substr(open + 1, close - open - 1));
    std::string name, argument;
    std::getline(std::getline(call, name, ' '), argument);
    std::string made = macros.at(name);
    for (std::size_t at = made.find('#'); at != std::string::npos;
         at = made.find('#', at + argument.size())) {
      made.replace(at, 1, argument);
    }
    text.replace(open, close + 1 - open, made);
  }
  return text;
}

}  // namespace

std::vector<Conversation> ReadConversations(const std::string& path) {
  std::vector<Conversation> found;
  Macros macros;
  std::ifstream file(path);
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line.starts_with('%')) continue;
    for (std::size_t at = line.find("\\x"); at != std::string::npos; at = line.find("\\x")) {
      line.replace(at, 4, 1, static_cast<char>(std::stoi(line.substr(at + 2, 2), nullptr, 16)));
    }
    if (line.starts_with("    ")) {
      found.back().steps.back().text += ' ' + Expand(macros, line.substr(4));
      continue;
    }
    if (line.starts_with("  ")) {
      found.back().steps.back().expected += line.substr(2) + '\n';
      continue;
    }
    std::istringstream words(line);
    std::string command, rest;
    std::getline(words >> command >> std::ws, rest);
    if (command == "let") {
      const std::size_t space = rest.find(' ');
      macros[rest.substr(0, space)] = Expand(macros, rest.substr(space + 1));
    } else if (command == "conversation") {
      found.push_back({rest, {}});
    } else {
      found.back().steps.push_back({number, command, Expand(macros, rest), {}});
    }
  }
  return found;
}

}  // namespace testsupport
