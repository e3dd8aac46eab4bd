#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace testsupport {

struct Step {
  int line = 0;
  std::string command, text, expected;
};
struct Conversation {
  std::string name;
  std::vector<Step> steps;

  // For the name of its test, which would otherwise tell of addresses.
  friend void PrintTo(const Conversation& conversation, std::ostream* out) {
    *out << conversation.steps.size() << " steps";
  }
};

// Conversations from a text file: a line that begins in the first column is a command with its
// text, four blanks go on with that, two begin what is expected behind it, and % a comment. "let
// NAME TEXT" makes [NAME argument] stand for the text, with the argument in place of each #. \xE9
// is that byte.
[[nodiscard]] std::vector<Conversation> ReadConversations(const std::string& path);

}  // namespace testsupport
