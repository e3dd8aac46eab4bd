#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {
namespace {

class RecordStreamTest : public StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    stream->OpenFile();
  }
  std::string Close() {
    stream->CloseFile();
    return Written();
  }
};

TEST_F(RecordStreamTest, KeepsGroupUpToTheLastWantedFrame) {
  slot0.Schedule = AllWeek(1);
  Feed("I0 P40 B80 P120m B160 P200 I240 P280 I320 P360 P400");
  EXPECT_EQ(Close(), "I0 P40 P120m");  // B80 is depended on by nothing
  EXPECT_EQ(Join(core.Returned), "P200 B160 B80 I0 P40 P120m P280 I240");
}

TEST_F(RecordStreamTest, PreMotionFramesAreKeptOnceMotionStarts) {
  slot0.Schedule = AllWeek(1);
  slot0.PreMotion = 500;
  slot0.PostMotion = 100;
  Feed("I0 I200 I400 I600 I800 I1000m I1100 I1200 I1900 I2000");
  EXPECT_EQ(Close(), "I600 I800 I1000m I1100");
  EXPECT_FALSE(slot0.MotionTime);
}

TEST_F(RecordStreamTest, TimeLapseKeepsSingleKeyFrames) {
  stream->DefaultLapse = 1000;
  Feed("I0 P100 I400 P500 I900 P950 I1000 P1100 I1400 P1500 I2100 I2200 P2300");
  EXPECT_EQ(Close(), "I0 I1000");
  EXPECT_EQ(stats.Dropped, (std::array<std::uint64_t, 4>{0, 3, 5, 0}));
}

TEST_F(RecordStreamTest, ScheduleFollowsLocalHourOfWeek) {
  // The clock starts on a Sunday, 17:06:40 in this zone; 3,200 s later it is 18:00.
  slot0.Schedule = {{17, 17, 2}};
  slot0.Schedule.push_back({18, 18, 0});
  Feed("I3199000 I3199999 I3200000 I3201000 I3202000");
  EXPECT_EQ(Close(), "I3199000 I3199999");
}

TEST_F(RecordStreamTest, GroupWithoutSuccessorIsWrittenAfterFiveMinutes) {
  Feed("I0 P40 1:A300000");
  EXPECT_EQ(Waiting(), "I0 P40 1:A300000");
  Feed("1:A300001 1:A300002");
  EXPECT_EQ(Waiting(), "1:A300001 1:A300002");
  EXPECT_EQ(Close(), "I0 P40");
}

TEST_F(RecordStreamTest, ReadyMadePacketsTakeTypeAndFlagsFromTheirHeader) {
  slot0.Schedule = AllWeek(1);
  std::string packet(64, '\0');
  packet[2] = 1;
  packet[24] = packet[25] = packet[26] = '\x08';
  const auto give = [&](char info, std::uint32_t length, std::int64_t time) {
    packet[27] = info;
    KelvoFrameHeader header{};
    header.FrameType = KELVO_FRAME_B;  // not looked at
    header.Seconds = static_cast<std::uint32_t>((start + time) / 1000);
    void* buffer = host.NewBuffer(packet);
    const bool taken =
        stream->StreamAddFrame(kProvider, buffer, length, KELVO_WRITE_SUB_PES, header, false);
    if (!taken) core.DecrementReference(buffer);
    return taken;
  };
  EXPECT_FALSE(give('\x9D', 31, 0));
  packet[2] = 2;
  EXPECT_FALSE(give('\x9D', 64, 0));
  packet[2] = 1;
  EXPECT_EQ(stats.PES, 2u);
  EXPECT_TRUE(give('\x9D', 64, 0));
  ASSERT_NE(stream->Undecided().Front(), nullptr);
  EXPECT_EQ(stream->Undecided().Front()->Type, kTypeI);
  EXPECT_EQ(stream->Undecided().Front()->Flags, kFlagMotion);
  EXPECT_EQ(stream->Undecided().Front()->Time, start);
  EXPECT_TRUE(give('\x1E', 32, 1000));
  EXPECT_TRUE(give('\x1D', 64, 2000));
  EXPECT_TRUE(give('\x1D', 64, 3000));
  EXPECT_TRUE(give('\x1D', 64, 4000));
  stream->CloseFile();
  EXPECT_EQ(stats.Written, (std::array<std::uint64_t, 4>{0, 1, 0, 0}));
  EXPECT_EQ(stats.LastBytes, 64u);
}

TEST_F(RecordStreamTest, RefusesWhatItCannotHold) {
  stream->ChannelMap[7] = -1;
  stream->ChannelMap[8] = 32;
  EXPECT_FALSE(FeedOne("7:I0"));
  EXPECT_FALSE(FeedOne("8:I0"));
  EXPECT_EQ(stats.Ch, 2u);
  KelvoFrameHeader header{};
  EXPECT_FALSE(stream->StreamAddFrame(kProvider, nullptr, 100, 0, header, false));
  EXPECT_FALSE(stream->StreamAddFrame(kProvider, nullptr, 100, KELVO_WRITE_SUB_PES, header, false));
  EXPECT_EQ(host.CountLines(LogWarning, "00120100 has no buffer"), 2u);
}

TEST_F(RecordStreamTest, OddHeadersAreCutToWhatAFileHolds) {
  slot0.Schedule = AllWeek(2);
  KelvoFrameHeader header{};
  header.FrameType = 5;
  header.ExtensionLength = 0x1FF;
  header.Seconds = 0xFFFFFFFF;
  header.Milliseconds = 0xFFFF;
  std::fill(std::begin(header.Extension), std::end(header.Extension), std::uint8_t{9});
  ASSERT_TRUE(stream->StreamAddFrame(kProvider, host.NewBuffer(std::string_view("x", 2)), 0, 0,
                                     header, false));
  const PendingFrame* frame = stream->Undecided().Front();
  EXPECT_EQ(frame->Type, kTypeI);
  EXPECT_EQ(frame->ExtensionLength, 128);
  EXPECT_EQ(frame->Time, 0xFFFFFFFFLL * 1000 + 0xFFFF);
  header.ExtensionLength = 0x106;
  header.Seconds = static_cast<std::uint32_t>(start / 1000);
  for (int i = 0; i < 4; ++i) {
    header.Milliseconds = static_cast<std::uint16_t>(i);
    ASSERT_TRUE(stream->StreamAddFrame(kProvider, host.NewBuffer(std::string_view("x", 2)), 0, 0,
                                       header, false));
  }
  stream->CloseFile();
  const auto file = testsupport::ReadPs(tree.Path(tree.FilesEndingIn(".ps").at(0)));
  ASSERT_EQ(file.frames.size(), 2u);
  EXPECT_EQ(file.frames[0].userData.size(), 87u);
  EXPECT_EQ(file.frames[1].userData.size(), 6u);
  EXPECT_EQ(file.frames[1].payload.size(), 0u);
}

TEST_F(RecordStreamTest, ResetSlotReturnsItsFramesAndEmptiesIt) {
  slot0.Schedule = slot0.LapseSchedule = AllWeek(2);
  slot0.SampleRate = 8000;
  slot0.BufSizeSamples = 160;
  slot0.Standard = slot0.Width = slot0.Height = slot0.PostMotion = slot0.PreMotion = 4;
  slot0.PreAlarm = 100;
  slot0.Name = "gate";
  slot0.ActiveAlarms[1] = std::nullopt;
  stream->Slots[1].PreAlarm = 100;
  Feed("1:I0 I10m P20 1:P30");
  stream->ResetSlot(0);
  EXPECT_EQ(Waiting(), "1:I0 1:P30");
  EXPECT_EQ(Join(core.Returned), "I10m P20");
  EXPECT_EQ(slot0.SampleRate, 8000);
  EXPECT_EQ(slot0.BufSizeSamples, 160);
  EXPECT_EQ(slot0.Standard + slot0.Width + slot0.Height + slot0.PostMotion + slot0.PreMotion +
                slot0.PreAlarm,
            0);
  EXPECT_EQ(slot0.Encoder + slot0.Input, -2);
  EXPECT_TRUE(slot0.Name.empty() && slot0.Schedule.empty() && slot0.LapseSchedule.empty());
  EXPECT_TRUE(slot0.ActiveAlarms.empty() && !slot0.MotionTime && !slot0.LastWritten);
}

TEST_F(RecordStreamTest, EncodersOfAStreamSpreadOverInputs) {
  slot0.Input = 3;
  slot0.Encoder = 2;
  EXPECT_EQ(stream->EffectiveInput(0), 35);
  stream->Layout = 0xFF;
  EXPECT_EQ(stream->EffectiveInput(0), 3);
  stream->Layout = 0x81;
  slot0.Encoder = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(stream->EffectiveInput(0), std::numeric_limits<std::int32_t>::max());
  slot0.Input = -1;
  EXPECT_EQ(stream->EffectiveInput(0), -1);
}

TEST_F(RecordStreamTest, CountsWrittenBytesSinceTheLastCall) {
  Feed("A0a A10a 16:A20a");
  stream->FlushPending();
  EXPECT_EQ(stream->TakeWrittenBytes(), 14u);
  EXPECT_EQ(stream->TakeWrittenBytes(), 0u);
}

}  // namespace
}  // namespace qvsvr::kelvo
