#include <cerrno>

#include "record/StreamSet.h"
#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {
namespace {

class RecordFile : public StreamTest {
 protected:
  void Roll() {
    bundle.clock.Advance(1000);
    stream->OpenFile();
  }
  // The lines that a stream's file leaves in the log, without the path of the tree.
  std::vector<std::string> Log() {
    std::vector<std::string> texts;
    for (const auto& line : host.Lines()) {
      std::string text = std::to_string(line.level) + ' ' + line.text;
      if (const auto at = text.find(storage.Volume); at != std::string::npos) {
        text.erase(at, storage.Volume.size());
      }
      texts.push_back(qv::kelvo::Slashed(text));
    }
    host.ForgetTraffic();
    return texts;
  }
  using Lines = std::vector<std::string>;
};

TEST_F(RecordFile, LivesInTheHourItWasOpenedUnderAReservation) {
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
  EXPECT_EQ(stream->GetOpenTime(), start);
  EXPECT_EQ(reservations.ReservedGB(storage.Volume), 1);
  EXPECT_TRUE(reservations.HasReservation(tree.Path("volume/2025/06/15/17/0640-00120180.ps")));
  Feed("16:A5 I10 P20 I30 I1040 I1050 I1060");
  stream->CloseFile();
  EXPECT_EQ(stream->GetOpenTime(), std::nullopt);
  EXPECT_EQ(reservations.ReservedGB(storage.Volume), 0);
  EXPECT_EQ(tree.FilesEndingIn(".ps"), Lines{"volume/2025/06/15/17/0640-00120180.ps"});
  EXPECT_EQ(Log(),
            (Lines{"25 Opened 2025/06/15/17/0640-00120180.ps (and PSI).",
                   "25 Closed 2025/06/15/17/0640-00120180.ps (and PSI) frames:4, clips:2."}));

  const auto file = testsupport::ReadPs(tree.Path("volume/2025/06/15/17/0640-00120180.ps"));
  EXPECT_EQ(file.fileInput, 0x80);
  const testsupport::PsStream& video = file.streams[0];
  const testsupport::PsStream& sound = file.streams[16];
  EXPECT_EQ(std::tuple(video.type, video.id, video.width16, video.height16, video.name,
                       video.encoder, video.channel),
            std::tuple(27 + 128, 0xE0, 120, 68, "north gate", 1, 3));
  EXPECT_EQ(file.streams[1].id, 0xD1);
  EXPECT_EQ(std::tuple(sound.type, sound.id, sound.bufSizeSamples, sound.sampleRate),
            std::tuple(2 + 144, 0xC0, 160, 8000));
  ASSERT_EQ(file.frames.size(), 4u);
  EXPECT_EQ(file.frames[1].timeMs, start + 10);
}

TEST_F(RecordFile, MissingVolumeIsToldOnceAndKeepsTheOpenFile) {
  stream->OpenFile();
  Log();
  const std::string volume = std::exchange(storage.Volume, "");
  Roll();
  Roll();
  EXPECT_EQ(stream->GetOpenTime(), start);
  storage.Volume = volume;
  Roll();
  Roll();
  EXPECT_EQ(Log(), (Lines{"50 system 00120180 could not get record volume",
                          "25 system 00120180 got a record volume",
                          "25 Closed 2025/06/15/17/0640-00120180.ps (and PSI) frames:0, clips:0.",
                          "25 Opened 2025/06/15/17/0643-00120180.ps (and PSI).",
                          "25 Closed 2025/06/15/17/0643-00120180.ps (and PSI) frames:0, clips:0.",
                          "25 Opened 2025/06/15/17/0644-00120180.ps (and PSI)."}));
}

TEST_F(RecordFile, StreamWithoutChannelsAsksForAVolumeButOpensNothing) {
  stream->ActiveChannels = 0;
  stream->OpenFile();
  EXPECT_EQ(storage.Asked, 1);
  EXPECT_FALSE(stream->HasFile());
  EXPECT_TRUE(boost::filesystem::is_directory(storage.Volume + "2025/06/15/17"));
  EXPECT_TRUE(tree.Files().empty());
  stream->ActiveChannels = 1;
  Roll();
  EXPECT_EQ(host.CountLines("system 00120180 opened"), 1u);
}

TEST_F(RecordFile, WriteErrorEndsTheFileUntilTheNextIsOpened) {
  stream->OpenFile();
  Feed("A0a A10a");
  bundle.files.Fail(qv::kelvo::FileCall::WriteAt, 1, EIO);
  host.ForgetTraffic();
  Feed("A20a A30a");
  EXPECT_EQ(Log(),
            Lines{"75 Closed 2025/06/15/17/0640-00120180.ps (and PSI) - psfile write error -5."});
  EXPECT_EQ(stream->GetOpenTime(), start);
  EXPECT_EQ(reservations.ReservedGB(storage.Volume), 1);
  EXPECT_EQ(bundle.files.OpenFiles(), 0u);
  Roll();
  Feed("A40a");
  stream->CloseFile();
  EXPECT_EQ(Written(), "A0a A30a");
  EXPECT_TRUE(storage.Removed.empty());
  EXPECT_EQ(stats.Written[kTypeAudio], 2u);
}

TEST_F(RecordFile, FileIsDueByAgeAndByAClockSetBack) {
  StreamSet streams;
  EXPECT_FALSE(streams.AnyFileDue(start));
  RecordStream& first = streams.Add(NewStream(1));
  RecordStream& second = streams.Add(NewStream(2));
  EXPECT_TRUE(streams.AnyFileDue(start));
  first.OpenFile();
  EXPECT_TRUE(streams.AnyFileDue(start));
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
  EXPECT_TRUE(streams.AnyFileDue(start + 360'000));
}

}  // namespace
}  // namespace qvsvr::kelvo
