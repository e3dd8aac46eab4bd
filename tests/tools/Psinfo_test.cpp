#include "platform/Platform.h"
#include "tests/support/Recordings.h"
#include "tests/tools/ToolFixture.h"

namespace toolstest {
namespace {

using namespace qv::kelvo;

constexpr std::size_t kMediaHead = 1978, kIndexHead = 1088, kRecord = 32;
constexpr std::size_t kBlankStreams = 64 + 2 * kRecord;  // records of streams 2 to 15
constexpr std::uint32_t kPayload = 100;
constexpr std::size_t kFrameSize = 160;  // 32 + 100, up to a multiple of 32
constexpr unsigned kFrames = 40;

// A recording of one video and one audio stream that take turns, with motion in the middle.
class PsinfoTest : public ToolTest {
 protected:
  void SetUp() override { Write(0x85); }
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
    const std::string payload(kPayload, 'x');
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
};

TEST_F(PsinfoTest, PrintsStreamsRunsAndFrames) {
  const auto printed = Psinfo("print -v a.ps");
  EXPECT_EQ(printed.code, 0);
  for (const char* const text :
       {"closed index, 40 frames, 2023-11-14 22:13:20.000Z to 2023-11-14 22:13:21.560Z",
        "stream  0 video      20 frames  channel 0 encoder 1", "H.264", "Gate", "MPEG audio",
        "run    5  stream 16", "frame     39 at       8218  stream 16  A"}) {
    EXPECT_TRUE(printed.Says(text)) << text << "\n" << printed.text;
  }
}

TEST_F(PsinfoTest, MakesTheVeryIndexThatWasLost) {
  EXPECT_EQ(Psinfo("check .").text, "./a.ps: 40 frames, good\n0 of 1 recordings damaged\n");
  const std::string index = tree.Read("a.psi");
  auto stale = index;
  for (std::size_t at = 20; at < 44; ++at) stale[at] = 0;  // a head without counts
  for (const std::string& before : {index.substr(0, kIndexHead + 300), stale}) {
    tree.Write("a.psi", before);
    const auto checked = Psinfo("check a.ps");
    EXPECT_EQ(checked.code, 1);
    EXPECT_TRUE(before != stale ||
                checked.text.ends_with("never closed\n1 of 1 recordings damaged\n"))
        << checked.text;
    EXPECT_EQ(Psinfo("rebuild a.psi").code, 0);
    EXPECT_TRUE(tree.Read("a.psi") == index);
  }
  EXPECT_EQ(std::remove(tree.Path("a.psi").c_str()), 0);
  EXPECT_TRUE(Psinfo("check a.ps").Says("there is no index"));
  const auto rebuilt = Psinfo("rebuild a.ps");
  EXPECT_TRUE(rebuilt.Says("40 frames, 6 runs")) << rebuilt.text;
  // Only the old index knew the encoder's upper bits and the named streams without frames.
  EXPECT_TRUE(tree.Read("a.psi").substr(kIndexHead) == index.substr(kIndexHead));
  EXPECT_TRUE(tree.Read("a.psi").substr(kBlankStreams, 448) == index.substr(kBlankStreams, 448));
  EXPECT_TRUE(Psinfo("check a.ps").Says("a.ps: 40 frames, good"));

  Write(3);  // a file for one input, whose frames don't tell the encoder
  EXPECT_TRUE(Psinfo("check a.ps").Says("good"));
}

TEST_F(PsinfoTest, SaysWhereAPairIsDamaged) {
  const std::size_t thirdFrame = kMediaHead + 3 * kFrameSize;
  const std::size_t runs = kIndexHead + kFrames * kRecord;
  const struct {
    const char* file;
    std::size_t offset;
    const char* finding;
  } rows[] = {
      {"a.ps", 5, "media offset 0: the pack header isn't the constant"},
      {"a.ps", thirdFrame, "media offset 2458: no 00 00 01 where a frame begins"},
      {"a.ps", thirdFrame + 19, "media offset 2477: a fixed bit is wrong"},
      {"a.ps", thirdFrame + 150, "media offset 2590: the padding isn't zero"},
      {"a.psi", kBlankStreams + 24, "index offset 152: stream record 2: channel isn't what"},
      {"a.ps", thirdFrame + 23, "media offset 2479: the size of the frame before is wrong"},
      {"a.ps", thirdFrame + 29, "media offset 2487: the pad count doesn't fit the frame"},
      {"a.ps", thirdFrame + 31,
       "index offset 1190: frame record 3: date isn't what the frames say"},
      {"a.psi", 4, "index offset 0: the head has no version or other record sizes"},
      {"a.psi", 23, "index offset 20: the head counts 4278190120 frames"},
      {"a.psi", 64 + 4, "index offset 68: stream record 0: first frame isn't what the frames say"},
      {"a.psi", kIndexHead + 20, "index offset 1108: frame record 0: next link isn't what"},
      {"a.psi", kIndexHead + kRecord + 14, "index offset 1132: frame record 1: offset isn't what"},
      {"a.psi", runs + 17, "index offset 2385: run record 1: flags isn't what the frames say"},
  };
  for (const auto& row : rows) {
    const std::string good = tree.Read(row.file);
    auto bad = good;
    bad[row.offset] = static_cast<char>(bad[row.offset] ^ 0xFF);
    tree.Write(row.file, bad);
    const auto checked = Psinfo("check a.ps");
    EXPECT_EQ(checked.code, 1) << row.finding;
    EXPECT_TRUE(checked.Says(row.finding)) << row.finding << "\n" << checked.text;
    tree.Write(row.file, good);
  }
}

TEST_F(PsinfoTest, SavesTheFramesBehindDamageAndBeforeACut) {
  auto media = tree.Read("a.ps");
  media[kMediaHead + 5 * kFrameSize] = 1;
  media[kMediaHead + 6 * kFrameSize + 23] = 1;  // of the size of the frame before
  media.resize(media.size() - 10);
  tree.Write("a.ps", media);
  EXPECT_FALSE(Psinfo("check a.ps").Says("frame before")) << "it isn't known";
  const auto rebuilt = Psinfo("rebuild a.ps");
  EXPECT_TRUE(rebuilt.Says("38 frames")) << rebuilt.text;
  EXPECT_TRUE(rebuilt.Says("; 310 bytes of the media file belong to no frame")) << rebuilt.text;
  EXPECT_TRUE(Psinfo("print a.ps").Says("closed index, 38 frames"));
}

TEST_F(PsinfoTest, ReadsOlderFramesAndShorterMaps) {
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
    EXPECT_EQ(Psinfo("rebuild a.ps").code, 0);
    EXPECT_EQ(Psinfo("check a.ps").text, "a.ps: 40 frames, good\n0 of 1 recordings damaged\n");
    for (const bool indexed : {true, false}) {
      if (!indexed) {
        ASSERT_EQ(std::remove(tree.Path("a.psi").c_str()), 0);
      }
      const auto printed = Psinfo("print a.ps");
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
  const auto checked = Psinfo("check small.ps");
  EXPECT_TRUE(checked.Says("3 frames, DAMAGED\n  index offset 0: there is no index\n1"))
      << checked.text;
}

TEST_F(PsinfoTest, KeepsTheOldIndexWhereItCantDoBetter) {
  const std::string index = tree.Read("a.psi"), cut = index.substr(0, kIndexHead + 300);
  tree.Write("a.psi", cut);
  const auto full =
      RunCommand("cd " + tree.Root() +
                 " && bash -c 'trap \"\" XFSZ; ulimit -f 2; " KELVO_PSINFO " rebuild a.ps'");
  EXPECT_EQ(full.code, 2) << full.text;
  EXPECT_TRUE(full.Says("a.psi: left as it is")) << full.text;
  EXPECT_TRUE(tree.Read("a.psi") == cut);

  auto media = tree.Read("a.ps");
  media[3] = 'x';  // where frames begin isn't told any more
  tree.Write("a.ps", media);
  tree.Write("a.psi", index);
  EXPECT_TRUE(Psinfo("rebuild a.ps").Says("40 frames could be read before, 0 would be left"));
  EXPECT_TRUE(tree.Read("a.psi") == index);
  EXPECT_TRUE(Psinfo("rebuild --force a.ps").Says("0 frames"));

  EXPECT_EQ(tree.Files().size(), 2u);
}

TEST_F(PsinfoTest, LivesThroughAnyBytes) {
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
    for (const char* const command : {"check a.ps", "print -v a.ps"}) {
      const auto outcome = Psinfo(command);
      EXPECT_TRUE(outcome.code >= 0 && outcome.code <= 2) << outcome.text;
    }
    tree.Write(file, good);
  }
}

}  // namespace
}  // namespace toolstest
