#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "tests/support/TempTree.h"

namespace toolstest {

// A command as a user types it, with both its outputs.
struct Outcome {
  int code = -1;
  std::string text;
  [[nodiscard]] bool Says(const std::string& part) const {
    return text.find(part) != std::string::npos;
  }
};
inline Outcome RunCommand(const std::string& command) {
  Outcome outcome;
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  char block[4096];
  for (std::size_t got = 0; (got = std::fread(block, 1, sizeof block, pipe)) > 0;) {
    outcome.text.append(block, got);
  }
  const int status = pclose(pipe);
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

class ToolTest : public ::testing::Test {
 protected:
  qv::kelvo::TempTree tree;

  [[nodiscard]] Outcome Nvrhost(const std::string& arguments) const {
    return RunCommand("cd " + tree.Root() + " && " KELVO_NVRHOST " " + arguments);
  }
  [[nodiscard]] Outcome Psinfo(const std::string& arguments) const {
    return RunCommand("cd " + tree.Root() + " && " KELVO_PSINFO " " + arguments);
  }
  [[nodiscard]] Outcome Ffmpeg(const std::string& command) const {
    return RunCommand("cd " + tree.Root() + " && " + command);
  }
  // Records small pictures into the tree, which end now; the ledger is `given`.
  void Record(const std::string& arguments, const std::string& size = "64x64") const {
    const auto recorded =
        Nvrhost("record --dir . --speed max --seconds 8 --loop 4 --gop 10 --ledger given --size " +
                size + " " + arguments);
    ASSERT_EQ(recorded.code, 0) << recorded.text;
  }
  [[nodiscard]] std::string OnlyRecording() const {
    const auto files = tree.FilesEndingIn(".ps");
    return files.size() == 1 ? files.front() : "";
  }
};

}  // namespace toolstest
