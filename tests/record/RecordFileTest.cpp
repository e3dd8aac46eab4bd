#include "record/StreamSet.h"
#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {
namespace {

// What becomes of a file without a volume or after a write error is seen in tests/plugin.
using RecordFile = StreamTest;

TEST_F(RecordFile, DescribesItsChannelsAndHoldsAReservation) {
  slot0.Schedule = AllWeek(2);
  slot0.Standard = 27;
  slot0.Width = 1920;
  slot0.Height = 1088;
  slot0.Encoder = 1;
  slot0.Input = 3;
  slot0.Name = "north gate";
  ChannelSlot& audio = stream->Slots[16];
  audio.Schedule = AllWeek(2);
  audio.Standard = 2;
  audio.BufSizeSamples = 160;
  audio.SampleRate = 8000;
  stream->OpenFile();
  const std::string path = tree.Path("volume/2025/06/15/17/0640-00120180.ps");
  EXPECT_EQ(stream->GetOpenTime(), start);
  EXPECT_EQ(reservations.ReservedGB(storage.Volume), 1);
  EXPECT_TRUE(reservations.HasReservation(path));
  Feed("16:A5 I10 P20 I30 I1040 I1050 I1060");
  stream->CloseFile();
  EXPECT_EQ(stream->GetOpenTime(), std::nullopt);
  EXPECT_EQ(reservations.ReservedGB(storage.Volume), 0);
  EXPECT_EQ(host.CountLines(25, "Opened " + path + " (and PSI)."), 1u);
  EXPECT_EQ(host.CountLines(25, "Closed " + path + " (and PSI) frames:4, clips:2."), 1u);

  const auto file = testsupport::ReadPs(path);
  EXPECT_EQ(file.fileInput, 0x80);
  const testsupport::PsStream& video = file.streams[0];
  const testsupport::PsStream& sound = file.streams[16];
  EXPECT_EQ(std::tuple(video.type, video.id, video.width16, video.height16, video.name,
                       video.encoder, video.channel),
            std::tuple(27 + 128, 0xE0, 120, 68, "north gate", 1, 3));
  EXPECT_EQ(file.streams[1].id, 0xD1);
  EXPECT_EQ(std::tuple(sound.type, sound.id, sound.bufSizeSamples, sound.sampleRate),
            std::tuple(2 + 144, 0xC0, 160, 8000));
}

TEST_F(RecordFile, FileIsDueByAgeAndByAClockSetBack) {
  StreamSet streams;
  EXPECT_FALSE(streams.AnyFileDue(start));
  RecordStream& first = streams.Add(NewStream(1));
  RecordStream& second = streams.Add(NewStream(2));
  first.OpenFile();
  EXPECT_TRUE(streams.AnyFileDue(start)) << "the second has none";
  bundle.clock.Advance(60'000);
  second.OpenFile();
  EXPECT_TRUE(streams.AnyFileDue(start + 59'999)) << "younger than nothing";
  EXPECT_FALSE(streams.AnyFileDue(start + 60'000));
  EXPECT_FALSE(streams.AnyFileDue(start + 299'999));
  EXPECT_TRUE(streams.AnyFileDue(start + 300'000));
  EXPECT_TRUE(first.FileDue(start + 300'000));
  EXPECT_FALSE(second.FileDue(start + 300'000));
  first.CloseFile();
  EXPECT_TRUE(streams.AnyFileDue(start + 60'000));
  streams.Remove(&first);
  EXPECT_FALSE(streams.AnyFileDue(start + 359'999));
}

}  // namespace
}  // namespace qvsvr::kelvo
