#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <sstream>

#include "platform/Platform.h"
#include "tests/support/Conversation.h"
#include "tests/support/Recordings.h"
#include "tests/support/TempTree.h"

namespace toolstest {
namespace {

using namespace qv::kelvo;
using testsupport::Conversation;
using testsupport::Step;

constexpr std::size_t kMediaHead = 1978;
constexpr std::size_t kFrameSize = 160;  // 32 + 100, up to a multiple of 32
constexpr unsigned kFrames = 40;

// A command as a user types it, with both its outputs.
struct Outcome {
  int code = -1;
  std::string text;
  [[nodiscard]] bool Says(const std::string& part) const {
    return text.find(part) != std::string::npos;
  }
};

class Tools : public ::testing::Test {
 protected:
  // Runs it in the tree, where the tools are found by their names.
  [[nodiscard]] Outcome Run(const std::string& command) const {
    Outcome outcome;
    const std::string path = "S3=" KELVO_S3_FOLDER "; PATH=" KELVO_TOOLS_FOLDER ":$PATH";
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

  // A recording of one video and one audio stream that take turns, with motion in the middle.
  void Write(std::uint8_t fileInput) {
    PsStreams descriptors;
    for (unsigned stream = 0; stream < kStreamCount; ++stream) {
      const bool video = stream < kVideoStreams, named = stream % 16 < 2;  // two without frames
      descriptors[stream].streamId = static_cast<std::uint8_t>((video ? 0xE0 : 0xC0) + stream % 16);
      descriptors[stream].streamType =
          static_cast<std::uint8_t>((named ? 4 : 0) + (video ? 128 : 144));
      descriptors[stream].encoder = named ? 5 : 0xFF;
      descriptors[stream].channel = named ? 0 : 0xFF;
    }
    descriptors[0].name = "Gate";
    const std::string payload(100, 'x');
    std::vector<PSFrame> frames;
    for (unsigned number = 0; number < kFrames; ++number) {
      const bool audio = number % 2 != 0;
      const auto type = audio ? kFrameAudio : number % 10 == 0 ? kFrameI : kFrameP;
      frames.push_back(MakeFrame(audio ? 16 : 0, type, 1'700'000'000'000 + number * 40, payload));
      frames.back().flags = number >= 10 && number < 20 ? 0x80 : 0;
      frames.back().encoder = 5;
    }
    PSFile file(SystemPlatform().mediaFiles);
    WriteRecording(file, tree.Path("a.ps"), fileInput, descriptors, frames);
  }

  TempTree tree;
};

class Commands : public Tools, public ::testing::WithParamInterface<Conversation> {
 protected:
  void Flip(const std::string& name, long offset) {
    const std::string file = tree.FilesEndingIn(name).at(0);
    std::string bytes = tree.Read(file);
    char& byte = offset < 0 ? bytes.end()[offset] : bytes.at(static_cast<std::size_t>(offset));
    byte = static_cast<char>(byte ^ 0xFF);
    tree.Write(file, bytes);
  }
  Outcome Do(const Step& step) {
    if (step.command == "$") return Run(step.text);
    std::istringstream words(step.text);
    std::string file;
    long number = 0;
    if (step.command == "recording") {
      words >> number;
      Write(static_cast<std::uint8_t>(number));
      return {0, ""};
    }
    words >> file >> number;
    Flip(file, number);
    if (step.command == "flip") return {0, ""};
    Outcome outcome = Run("psinfo check a.ps");
    Flip(file, number);
    return outcome;
  }
};

TEST_P(Commands, AnswerAsTold) {
  for (const Step& step : GetParam().steps) {
    const Outcome seen = Do(step);
    SCOPED_TRACE("line " + std::to_string(step.line) + ":\n" + seen.text);
    std::istringstream expected(step.expected);
    std::size_t at = 0;
    int code = 0;
    for (std::string line; std::getline(expected, line);) {
      if (line.starts_with("exit ")) {
        code = std::stoi(line.substr(5));
      } else if (line.starts_with("not ")) {
        EXPECT_FALSE(seen.Says(line.substr(4))) << line;
      } else {
        at = seen.text.find(line, at);
        ASSERT_NE(at, std::string::npos) << "doesn't say " << line;
        at += line.size();
      }
    }
    ASSERT_EQ(seen.code, code);
  }
}

auto From(const std::string& file) {
  return ::testing::ValuesIn(testsupport::ReadConversations(KELVO_COMMANDS + file));
}
std::string NameOf(const ::testing::TestParamInfo<Conversation>& made) {
  return made.param.name;
}
INSTANTIATE_TEST_SUITE_P(Text, Commands, From("commands.txt"), NameOf);
INSTANTIATE_TEST_SUITE_P(BucketArchive, Commands, From("archive.txt"), NameOf);

using PsinfoTest = Tools;

TEST_F(PsinfoTest, ReadsOlderFramesAndShorterMaps) {
  Write(0x85);
  const std::string good = tree.Read("a.ps");
  for (const bool seconds : {true, false}) {
    auto media = good;
    for (unsigned number = 0; number < kFrames; ++number) {
      for (unsigned byte = 0; byte < 4; ++byte) {
        const unsigned time = (1'700'000'000 + number / 25) >> (24 - 8 * byte);
        media[kMediaHead + number * kFrameSize + 28 + byte] =
            static_cast<char>(seconds ? time : -1);
      }
    }
    tree.Write("a.ps", media);
    EXPECT_EQ(Run("psinfo rebuild a.ps").code, 0);
    EXPECT_EQ(Run("psinfo check a.ps").text, "a.ps: 40 frames, good\n0 of 1 recordings damaged\n");
    for (const bool indexed : {true, false}) {
      if (!indexed) {
        ASSERT_EQ(std::remove(tree.Path("a.psi").c_str()), 0);
      }
      const auto printed = Run("psinfo print a.ps");
      EXPECT_EQ(printed.Says("2023-11-14 22:13:20.000Z to 2023-11-14 22:13:21.560Z"), seconds);
      EXPECT_FALSE(printed.Says("2127") || printed.Says("2128")) << printed.text;
    }
  }

  constexpr std::size_t kMap = 16, kEntries = kMap + 106, kEntry = 58;
  auto small = good.substr(0, kMap + 38) + std::string("\1\0", 2);  // info of 28 bytes
  small[kMap + 4] = 1, small[kMap + 5] = 34, small[kMap + 9] = 28;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    small += good.substr(kEntries + stream * kEntry, 8);
    small[small.size() - 5] = 4;
  }
  tree.Write("small.ps", small + good.substr(kMediaHead, 3 * kFrameSize));
  const auto checked = Run("psinfo check small.ps");
  EXPECT_TRUE(checked.Says("3 frames, DAMAGED\n  index offset 0: there is no index\n1"))
      << checked.text;
}

TEST_F(PsinfoTest, LivesThroughAnyBytes) {
  Write(0x85);
  std::uint32_t random = 12345;
  for (int round = 0; round < 80; ++round) {
    const std::string file = round % 2 == 0 ? "a.ps" : "a.psi";
    const std::string good = tree.Read(file);
    auto bad = good;
    for (int flip = 0; flip < 20; ++flip) {
      random = random * 1664525 + 1013904223;
      bad[(random >> 8) % bad.size()] = static_cast<char>(random >> 3);
    }
    bad.resize(bad.size() - random % 4096 % bad.size());
    tree.Write(file, bad);
    for (const char* const command : {"psinfo check a.ps", "psinfo print -v a.ps"}) {
      const auto outcome = Run(command);
      EXPECT_TRUE(outcome.code >= 0 && outcome.code <= 2) << outcome.text;
    }
    tree.Write(file, good);
  }
}

}  // namespace
}  // namespace toolstest
