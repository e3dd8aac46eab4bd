#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {
namespace {

class RecordStreamTest : public StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    stream->OpenFile();
  }
};

TEST_F(RecordStreamTest, ReadyMadePacketsAreTakenAsTheyAre) {
  slot0.Schedule = AllWeek(1);
  Feed("I0m I10 I20 I30");
  stream->CloseFile();
  stream->DropSlotFrames(0);
  // A packet as the first file holds it; its frame's header says something else.
  std::string packet = tree.Read(tree.FilesEndingIn(".ps").at(0)).substr(1978, 64);
  KelvoFrameHeader header{};
  header.FrameType = KELVO_FRAME_B;
  header.Seconds = static_cast<std::uint32_t>(start / 1000) + 100;
  const auto give = [&](std::uint32_t length) {
    void* buffer = host.NewBuffer(packet);
    const bool taken =
        stream->StreamAddFrame(kProvider, buffer, length, KELVO_WRITE_SUB_PES, header, false);
    if (!taken) core.DecrementReference(buffer);
    return taken;
  };
  EXPECT_FALSE(give(31));
  packet[2] = 2;
  EXPECT_FALSE(give(64));
  packet[2] = 1;
  EXPECT_EQ(stats.PES, 2u);
  bundle.clock.Advance(1000);
  stream->OpenFile();
  for (; header.Seconds < start / 1000 + 104; ++header.Seconds) {
    EXPECT_TRUE(give(35));  // without padding
  }
  stream->CloseFile();
  EXPECT_EQ(Written(), "I0m I0m");
  EXPECT_EQ(host.CountLines(LogInfo, " (and PSI) frames:1, clips:1."), 2u);
  const auto second = testsupport::ReadPs(tree.Path(tree.FilesEndingIn(".ps").at(1)));
  EXPECT_EQ(second.frames.at(0).type, kFrameI);
  EXPECT_EQ(second.frames.at(0).flags, kFlagMotion);
  EXPECT_EQ(second.frames.at(0).timeMs, start);
  EXPECT_EQ(stats.LastBytes, 3u + 35u);
}

TEST_F(RecordStreamTest, RefusesWhatItCannotHold) {
  ChannelSlot& sound = stream->Slots[18];
  sound.SampleRate = sound.BufSizeSamples = sound.Standard = 160;
  Feed("18:A0");
  stream->ResetSlot(18);
  EXPECT_EQ(Waiting(), "");
  EXPECT_FALSE(FeedOne("18:A0"));
  EXPECT_EQ(stats.Ch, 1u);
  EXPECT_EQ(sound.SampleRate + sound.BufSizeSamples + sound.Standard, 320) << "its format stays";
  for (const std::uint32_t subCode : {0u, KELVO_WRITE_SUB_PES}) {
    EXPECT_FALSE(stream->StreamAddFrame(kProvider, nullptr, 100, subCode, {}, false));
  }
  EXPECT_EQ(host.CountLines(LogWarning, "00120100 has no buffer"), 2u);
  // A camera without a clock doesn't end the file for the others. The clock starts in 2025.
  EXPECT_FALSE(FeedOne("I-1750000000000"));
  EXPECT_FALSE(FeedOne("I-803315200001"));
  EXPECT_EQ(host.CountLines(LogWarning, "00120100 dropped: captured before the year 2000"), 1u);
  EXPECT_TRUE(FeedOne("I-803315200000"));
}

TEST_F(RecordStreamTest, OddHeadersAreCutToWhatAFileHolds) {
  slot0.Schedule = AllWeek(2);
  KelvoFrameHeader header{};
  header.FrameType = 5;
  header.Seconds = 0xFFFFFFFF;
  header.Milliseconds = 0xFFFF;
  header.ExtensionLength = 0x1FF;
  const auto give = [&] {
    ASSERT_TRUE(stream->StreamAddFrame(kProvider, host.NewBuffer("x"), 0, 0, header, false));
    ++header.Milliseconds;
  };
  give();
  const PendingFrame* frame = stream->Undecided().Front();
  EXPECT_EQ(frame->Type, kFrameI);
  EXPECT_EQ(frame->ExtensionLength, 128);
  EXPECT_EQ(frame->Time, 0xFFFFFFFFLL * 1000 + 0xFFFF);
  header.Seconds = static_cast<std::uint32_t>(start / 1000);
  header.ExtensionLength = 0x106;
  for (int i = 0; i < 4; ++i) give();
  stream->CloseFile();
  const auto file = testsupport::ReadPs(tree.Path(tree.FilesEndingIn(".ps").at(0)));
  ASSERT_GE(file.frames.size(), 2u);
  EXPECT_EQ(file.frames[0].userData.size(), 87u);
  EXPECT_EQ(file.frames[1].userData.size(), 6u);
  EXPECT_EQ(file.frames[1].payload.size(), 0u);
}

// The order of frames and their links is checked through the stream in FlushModelTest.cpp.
TEST(PendingFrames, SteadyLoadReusesMemoryAndABurstGivesItBack) {
  PendingFrames frames;
  const auto bring = [&](std::size_t pending) {
    while (frames.Size() < pending) frames.Append(frames.Allocate());
    while (frames.Size() > pending) frames.Erase(frames.Front());
  };
  bring(1000);
  const std::size_t steady = frames.Capacity();
  for (int i = 0; i < 5000; ++i) {
    bring(1001);
    bring(1000);
  }
  bring(500);
  EXPECT_LE(frames.Capacity(), steady + 64);
  EXPECT_GE(frames.Capacity(), 1000u) << "a load that swings would allocate each time";

  bring(100'000);
  bring(100);
  EXPECT_LT(frames.Capacity(), 1000u) << "must not wait for the buffer to become empty";
  bring(0);
  EXPECT_LE(frames.Capacity(), 320u);
}

}  // namespace
}  // namespace qvsvr::kelvo
