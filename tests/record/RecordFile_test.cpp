#include <cerrno>
#include <utility>

#include "record/DueFiles.h"
#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {
namespace {

// What becomes of a file without a volume or after a write error is seen in tests/plugin.
using RecordFile = StreamTest;

class RecordFiles : public StreamTest {
 protected:
  RecordStream& Add(std::uint32_t id, int channels = 1) {
    RecordStream& added = streams.Add(NewStream(id));
    added.ActiveChannels = channels;
    return added;
  }
  // What the worker does after a message.
  void AfterMessage(std::int64_t milliseconds = 0) {
    bundle.clock.Advance(milliseconds);
    volumes.BeginMessage();
    files.Follow();
  }
  [[nodiscard]] int Asks() { return std::exchange(storage.Asked, 0); }

  StreamSet streams;
  DueFiles files{services, streams};
};

TEST_F(RecordFiles, OneQuestionForAVolumeServesAllStreamsOfAMessage) {
  for (std::uint32_t id = 1; id <= 100; ++id) Add(id, id <= 50 ? 1 : 0);
  AfterMessage();
  EXPECT_EQ(Asks(), 50) << "each file reserves room, so that it has to be asked for";
  AfterMessage(999);
  EXPECT_EQ(Asks(), 0);
  AfterMessage(1);
  EXPECT_EQ(Asks(), 1) << "for all that record nothing";

  storage.Searching = true;
  AfterMessage(300'000);
  AfterMessage();
  EXPECT_EQ(Asks(), 2);
  EXPECT_EQ(host.CountLines("record volume"), 0u) << "nothing is known yet";
  storage.Searching = false;
  const std::string volume = std::exchange(storage.Volume, "");
  AfterMessage(1000);
  for (int i = 0; i < 20; ++i) AfterMessage();
  EXPECT_EQ(Asks(), 21);
  volumes.BeginMessage();
  for (const auto& each : streams.All()) each->OpenFile();
  EXPECT_EQ(Asks(), 1) << "as after a configuration";
  EXPECT_EQ(host.CountLines(LogWarning, "could not get record volume"), 100u) << "once each";
  storage.Volume = volume;
  AfterMessage(1000);
  EXPECT_EQ(host.CountLines(LogInfo, "got a record volume"), 100u);
  EXPECT_EQ(host.CountLines("Opened "), 100u);
}

TEST_F(RecordFiles, StreamsThatFailToOpenTakeTurnsAndKeepNobodyElseWaiting) {
  for (std::uint32_t id = 1; id <= 4; ++id) Add(id);
  bundle.files.Set({.call = qv::kelvo::FileCall::Open,
                    .times = qv::kelvo::FileFault::kForGood,
                    .error = EMFILE,
                    .suffix = "-00000001.ps"});
  const auto others = [&] {
    return streams.Find(2)->HasFile() && streams.Find(3)->HasFile() && streams.Find(4)->HasFile();
  };
  AfterMessage();
  EXPECT_TRUE(others());
  AfterMessage(300'000);
  EXPECT_TRUE(others()) << "their next files are opened in the same message";

  bundle.files.ClearFaults();
  bundle.files.FailForGood(qv::kelvo::FileCall::Open, 1, EMFILE);
  AfterMessage(300'000);
  (void)Asks();
  for (int i = 0; i < 8; ++i) AfterMessage();
  EXPECT_EQ(Asks(), 8) << "one attempt a message";
  EXPECT_EQ(host.CountLines(LogError, " error -2"), 4u) << "once each";
  bundle.files.ClearFaults();
  AfterMessage();
  EXPECT_TRUE(others() && streams.Find(1)->HasFile());
}

TEST_F(RecordFile, WhatIsWantedWaitsForTheEndOfASearchForRoom) {
  slot0.Schedule = AllWeek(1);
  SProviderTuple camera;
  camera.Provider = kProvider;
  alarms.AddProviders({camera});
  const auto open = [this] {
    volumes.BeginMessage();
    stream->OpenFile();
  };
  storage.Searching = true;
  open();
  Feed("I0 I10 I20m P25m I30 I40m I50 I60");
  EXPECT_EQ(Waiting(), "I20m P25m I30 I40m I50 I60") << "what nobody wants need not wait";
  stream->CloseFile();  // as a configuration may
  open();
  EXPECT_EQ(Waiting(), "I20m P25m I30 I40m I50 I60");
  EXPECT_EQ(host.CountLines("volume"), 0u) << "nothing is known yet";
  storage.Searching = false;
  core.OutOfMemory = true;
  EXPECT_THROW(open(), std::bad_alloc) << "when it was written at once, which isn't done twice";
  EXPECT_EQ(Waiting(), "I50 I60");

  stream->CloseFile();
  storage.Searching = true;
  open();
  Feed("I1070m I1080 I1090");
  storage.Searching = false;
  storage.Volume.clear();
  open();
  open();
  EXPECT_EQ(host.CountLines("could not get record volume"), 1u);
  Feed("I1100");
  EXPECT_EQ(Waiting(), "I1080 I1090 I1100");
  EXPECT_EQ(Written(), "I20m P25m I40m");
}

}  // namespace
}  // namespace qvsvr::kelvo
