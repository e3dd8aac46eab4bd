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

class ToolTest : public ::testing::Test {
 protected:
  qv::kelvo::TempTree tree;

  // Runs it in the tree, where the tools are found by their names.
  [[nodiscard]] Outcome Run(const std::string& command) const {
    Outcome outcome;
    const std::string path = "PATH=" KELVO_TOOLS_FOLDER ":$PATH";
    const std::string whole = "(cd " + tree.Root() + "; " + path + "; " + command + ") 2>&1";
    std::FILE* const pipe = popen(whole.c_str(), "r");
    char block[4096];
    for (std::size_t got = 0; (got = std::fread(block, 1, sizeof block, pipe)) > 0;) {
      outcome.text.append(block, got);
    }
    const int status = pclose(pipe);
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
  }
  [[nodiscard]] Outcome Nvrhost(const std::string& arguments) const {
    return Run("nvrhost " + arguments);
  }
  // Records small pictures into the tree, which end now; the ledger is `given`.
  void Record(const std::string& arguments) const {
    const auto recorded = Nvrhost(
        "record --dir . --speed max --seconds 8 --loop 4 --gop 10 --ledger given --size 64x64 " +
        arguments);
    ASSERT_EQ(recorded.code, 0) << recorded.text;
  }
  [[nodiscard]] std::string OnlyRecording() const {
    const auto files = tree.FilesEndingIn(".ps");
    return files.size() == 1 ? files.front() : "";
  }
};

}  // namespace toolstest
