#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <random>

#include "tests/plugin/PluginFixture.h"
#include "tests/plugin/killed/LedgerFrames.h"

// A recorder dies by SIGKILL; what it left is compared with its ledger.
namespace plugintest {
namespace {

// Sanitizers slow a start down several times, and see nothing in files.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 40;
#else
constexpr int kRounds = 200;
#endif

class KilledRecorder : public ::testing::Test {
 protected:
  KilledRecorder() : drive(tree.MakeDirectory("drives/a")) {}

  // Starts the recorder; `output` becomes the reading end of what it prints.
  pid_t StartRecorder(std::vector<std::string> arguments, int& output) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const std::string program = KELVO_KILLED_WRITER;
    arguments.insert(arguments.begin(), program);
    std::vector<char*> list;
    for (auto& argument : arguments) list.push_back(argument.data());
    list.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      if (chdir(tree.Root().c_str()) == 0) execv(program.c_str(), list.data());
      _exit(127);
    }
    close(ends[1]);
    output = ends[0];
    return child;
  }

  // Reads until `count` bytes came; false when the recorder ended before.
  static bool WaitForBytes(int output, std::size_t count) {
    std::array<char, 256> bytes;
    while (count > 0) {
      const auto got = read(output, bytes.data(), std::min(count, bytes.size()));
      if (got <= 0) return false;
      count -= static_cast<std::size_t>(got);
    }
    return true;
  }

  static void ExpectKilled(pid_t child) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  }

  // Frames that each camera was given, and those that the plug-in had done with.
  struct Counts {
    std::array<std::uint32_t, killedwriter::kCameras> given{}, released{};
  };
  Counts ReadLedger() {
    Counts counts;
    std::ifstream file(tree.Path("ledger"), std::ios::binary);
    killedwriter::LedgerEntry entry;
    while (file.read(reinterpret_cast<char*>(&entry), sizeof entry)) {
      auto& list = entry.released != 0 ? counts.released : counts.given;
      EXPECT_EQ(entry.number, list[entry.camera]);
      ++list[entry.camera];
    }
    return counts;
  }

  void CheckCamera(std::uint8_t camera, std::uint32_t given, std::uint32_t released) {
    char name[32];
    std::snprintf(name, sizeof name, "-%08X.ps", killedwriter::kProvider | camera << 8 | 0x80);
    std::uint32_t found = 0;
    for (const auto& file : tree.FilesEndingIn(name)) {
      const auto recording = testsupport::ReadPs(tree.Path(file), PsEnd::Unclosed);
      for (const auto& fault : recording.faults) ADD_FAILURE() << file << ": " << fault;
      for (const auto& frame : recording.frames) {
        const auto payload = killedwriter::Payload(camera, found);
        ASSERT_EQ(frame.payload.size(), payload.size());
        ASSERT_EQ(std::memcmp(frame.payload.data(), payload.data(), payload.size()), 0) << found;
        ASSERT_EQ(frame.timeMs, killedwriter::kStartMs + found * killedwriter::kStepMs);
        ASSERT_EQ(frame.type, killedwriter::FrameType(found));
        ++found;
      }
      if (recording.lastFrameCut) {
        // It was being written, so it can't have been released.
        EXPECT_EQ(found, released);
        ++cutFrames;
      }
    }
    // All that was released is there; one more may be.
    EXPECT_GE(found, released);
    EXPECT_LE(found, released + 1);
    EXPECT_LE(found, given);
    foundFrames += found;
  }

  void CheckAndClear() {
    const auto counts = ReadLedger();
    for (std::uint8_t camera = 0; camera < killedwriter::kCameras; ++camera) {
      SCOPED_TRACE("camera " + std::to_string(camera));
      CheckCamera(camera, counts.given[camera], counts.released[camera]);
    }
    for (const auto& entry : boost::filesystem::directory_iterator(drive)) {
      boost::filesystem::remove_all(entry.path());
    }
    boost::filesystem::remove(tree.Path("ledger"));
  }

  qv::kelvo::TempTree tree;
  std::string drive;
  std::uint64_t foundFrames = 0, cutFrames = 0;
};

TEST_F(KilledRecorder, AtAnyMomentLosesOnlyWhatItWasWriting) {
  std::mt19937 random(20261121);
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    int output = -1;
    const pid_t child = StartRecorder({KELVO_PLUGIN, tree.Path("ledger")}, output);
    ASSERT_GT(child, 0);
    EXPECT_TRUE(WaitForBytes(output, random() % 1200));
    for (auto spin = random() % 100'000; spin > 0; --spin) {
      asm volatile("");  // some more time, that no event marks
    }
    ASSERT_EQ(kill(child, SIGKILL), 0);
    ExpectKilled(child);
    close(output);
    CheckAndClear();
    if (HasFailure()) return;
  }
  EXPECT_GT(foundFrames, kRounds * 200u);
}

TEST_F(KilledRecorder, BetweenAnyTwoFileCallsLosesOnlyWhatItWasWriting) {
  for (int call = 1; call <= 60; ++call) {
    SCOPED_TRACE("before call " + std::to_string(call));
    int output = -1;
    const pid_t child = StartRecorder(
        {KELVO_SEAMS_PLUGIN, tree.Path("ledger"), std::to_string(call), drive}, output);
    ASSERT_GT(child, 0);
    WaitForBytes(output, SIZE_MAX);
    ExpectKilled(child);
    close(output);
    CheckAndClear();
    if (HasFailure()) return;
  }
  EXPECT_GT(foundFrames, 20u);
  EXPECT_GT(cutFrames, 5u);
}

}  // namespace
}  // namespace plugintest
