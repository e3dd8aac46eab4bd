#include "tests/plugin/PluginFixture.h"

// The recording decision and the life of files over time, by a clock that the test moves.
namespace plugintest {
using namespace std::string_literals;
namespace {

constexpr std::int64_t kSecond = 1000, kMinute = 60 * kSecond;
constexpr std::int64_t kSundayEvening = 1'750'003'080'000;  // 2025-06-15 15:58:00 UTC, 17:58 local

class RecordTiming : public SeamTest {
 protected:
  RecordTiming() { bundle.clock.SetNow(kSundayEvening); }

  // Gives the lists' frames in turns.
  void GiveInTurns(const std::vector<Frame>& first, const std::vector<Frame>& second) {
    for (std::size_t n = 0; n < first.size(); ++n) {
      Give(first[n]);
      Give(second[n]);
    }
  }
};

// Those of the frames that were captured from `first` to `last` after the beginning, both included,
// with flags added.
std::vector<Frame> Between(const std::vector<Frame>& frames, std::int64_t first, std::int64_t last,
                           std::uint8_t flags) {
  std::vector<Frame> part;
  for (const auto& frame : frames) {
    const auto at = TimeOf(frame) - kSundayEvening;
    if (at < first || at > last) continue;
    part.push_back(frame);
    part.back().header.FrameFlags |= flags;
  }
  return part;
}

TEST_F(RecordTiming, FileLivesFiveMinutesInTheHourOfItsOpening) {
  const auto camera = Camera();
  Start({camera});
  const auto frames =
      MakeFrames(VideoProvider(camera), kSundayEvening, kSecond, Times(102, "IPBPBPB"), 200);
  GiveInTime(frames);
  Finish();
  const std::vector<std::string> wanted = {"drives/a/2025/06/15/17/5800-00110080.ps",
                                           "drives/a/2025/06/15/18/0300-00110080.ps",
                                           "drives/a/2025/06/15/18/0800-00110080.ps"};
  EXPECT_EQ(tree.FilesEndingIn(".ps"), wanted);
  const auto recordings = Recordings();
  for (const auto& recording : recordings) {
    EXPECT_EQ(recording.frames.at(0).type, unsigned{KELVO_FRAME_I});
  }
  // A group stays in the file that it began in, also past the five minutes.
  EXPECT_GE(recordings.at(0).frames.back().timeMs, kSundayEvening + 5 * kMinute - 7 * kSecond);
  const auto found = FramesOf(recordings);
  EXPECT_GE(found.size() + 14, frames.size());
  ExpectFrames(found, std::span(frames).first(found.size()));
  for (const auto& line : host->Lines())
    EXPECT_LT(line.level, unsigned{KELVO_LOG_WARNING}) << line.text;
}

TEST_F(RecordTiming, ClockSetBackEndsTheFileAtOnce) {
  const auto camera = Camera();
  Start({camera});
  const auto frames =
      MakeFrames(VideoProvider(camera), kSundayEvening, 100, Times(6, "IPBPB"), 200);
  GiveInTime(std::span(frames).first(15));
  Sync();
  bundle.clock.SetNow(kSundayEvening - 10 * kSecond);
  Sync();
  EXPECT_EQ(CountLog("Closed "), 1);
  EXPECT_EQ(CountLog("Opened "), 2);
  GiveAll(std::span(frames).subspan(15));
  Finish();
  const std::vector<std::string> wanted = {"drives/a/2025/06/15/17/5750-00110080.ps",
                                           "drives/a/2025/06/15/17/5800-00110080.ps"};
  EXPECT_EQ(tree.FilesEndingIn(".ps"), wanted);
  // The later file, by its name, holds the earlier frames.
  auto recordings = Recordings();
  std::swap(recordings.at(0), recordings.at(1));
  ExpectFrames(FramesOf(recordings), std::span(frames).first(25));
}

TEST_F(RecordTiming, ScheduleFollowsLocalHoursThroughBothTimeChanges) {
  // Sunday, the hour from 02:00 local: twice on the night of 26 October 2025, not at all on that
  // of 29 March 2026.
  auto camera = Camera();
  camera.schedule = {{2, 2, kAlways}};
  // Key frames every ten minutes over five hours.
  const auto recordNight = [&](std::int64_t firstFrame) {
    bundle.clock.SetNow(firstFrame);
    Start({camera});
    const auto frames =
        MakeFrames(VideoProvider(camera), firstFrame, 10 * kMinute, Times(30, "I"), 200);
    GiveInTime(frames);
    Finish();
    return frames;
  };
  const auto october = recordNight(1'761'433'200'000);  // 2025-10-25 23:00 UTC, 01:00 local
  EXPECT_EQ(CountLog("Duplicate file name"), 3);
  (void)recordNight(1'774'738'800'000);  // 2026-03-28 23:00 UTC, 00:00 local
  ASSERT_EQ(FramesOf(Recordings()).size(), 12u);
  // Of the names that both hours share, those of the second one end in a letter.
  auto recordings = Recordings();
  std::ranges::sort(recordings, {}, [](const auto& file) { return file.frames.at(0).timeMs; });
  ExpectFrames(FramesOf(recordings), std::span(october).subspan(6, 12));
}

TEST_F(RecordTiming, MotionKeepsWhatCameBeforeAndAfterIt) {
  // Groups of one second. Camera 0 looks back two seconds; camera 1 so little that motion begins
  // in the middle of a group, which is kept from its key frame on.
  auto far = Camera(0, kOnMotion), close = Camera(1, kOnMotion);
  far.preMotionMs = 2000;
  far.postMotionMs = close.postMotionMs = 1000;
  close.preMotionMs = 300;
  Start({far, close});
  auto farFrames = MakeFrames(VideoProvider(far), kSundayEvening, 200, Times(30, "IPPPP"), 300);
  auto closeFrames = MakeFrames(VideoProvider(close), kSundayEvening, 200, Times(30, "IPPPP"), 300);
  for (std::size_t n = 50; n <= 60; ++n) {
    farFrames[n].header.FrameFlags = KELVO_FLAG_MOTION;
    if (n >= 53) closeFrames[n].header.FrameFlags = KELVO_FLAG_MOTION;
  }
  GiveInTurns(farFrames, closeFrames);
  Finish();
  ExpectRecorded(far, Between(farFrames, 8'000, 13'000, KELVO_FLAG_MOTION));
  auto wanted = Between(closeFrames, 10'000, 10'200, 0);
  for (auto& frame : Between(closeFrames, 10'400, 13'000, KELVO_FLAG_MOTION)) {
    wanted.push_back(std::move(frame));
  }
  ExpectRecorded(close, wanted);
}

TEST_F(RecordTiming, AlarmKeepsBufferedFramesFromItsMomentOn) {
  auto camera = Camera(0, kOnAlarm);
  camera.audio = true;
  Start({camera}, 5);
  const auto frames =
      MakeFrames(VideoProvider(camera), kSundayEvening, 200, Times(30, "IPPPP"), 300);
  const auto sound = MakeFrames(AudioProvider(camera), kSundayEvening, 200, Times(150, "A"), 100);
  const auto alarm = [&](bool video, bool begins, std::int64_t at) {
    host->WriteXml(KELVO_WRITE_ACTION,
                   hostkit::AlarmAction(camera, video, 7, begins, (kSundayEvening + at) / 1000,
                                        static_cast<int>((kSundayEvening + at) % 1000)));
  };
  for (std::size_t n = 0; n < frames.size(); ++n) {
    Give(frames[n]);
    Give(sound[n]);
    // Raised at second 10 for a moment five seconds ago, the second time while it still holds.
    if (n == 50 || n == 51) alarm(true, true, 5'000);
    if (n == 50) alarm(false, true, 8'000);
    if (n == 70) {
      alarm(true, false, 15'000);
      alarm(false, false, 14'600);
    }
  }
  Finish();
  ExpectRecorded(camera, Between(frames, 5'000, 15'000, KELVO_FLAG_ALARM));
  ExpectRecorded(camera, Between(sound, 8'000, 14'600, KELVO_FLAG_ALARM), kAudioSlot);
}

TEST_F(RecordTiming, TimeLapseKeepsKeyFramesAnIntervalApart) {
  auto camera = Camera(0, kOnAlarm);
  camera.audio = true;
  Start({camera});
  Tell(hostkit::TimeLapseDelta(1000));
  const auto frames = MakeFrames(VideoProvider(camera), kSundayEvening, 200, Times(80, "IP"), 300);
  GiveInTurns(frames, MakeFrames(AudioProvider(camera), kSundayEvening, 200, Times(160, "A"), 100));
  Finish();
  // Key frames come every 400 ms: each third one is the first that is a second away.
  std::vector<Frame> wanted;
  for (std::size_t n = 0; n + 2 < frames.size(); n += 6) wanted.push_back(frames[n]);
  ExpectRecorded(camera, wanted);
  ExpectRecorded(camera, {}, kAudioSlot);
}

TEST_F(RecordTiming, MovingCameraCountsAsMotionInEachGroup) {
  const auto camera = Camera(0, kOnMotion);
  Start({camera});
  const struct {
    int opcode;
    bool moving;
  } steps[] = {{31, false}, {17, true},  {32, true}, {54, true}, {31, false},
               {18, true},  {31, false}, {33, true}, {31, true}, {54, true},
               {32, false}, {34, true},  {52, true}, {32, true}, {31, true},
               {54, false}, {53, true},  {99, true}, {54, false}};
  const auto frames =
      MakeFrames(VideoProvider(camera), kSundayEvening, 1000, Times(5 * 19 + 2, "I"), 300);
  std::vector<Frame> wanted;
  auto next = frames.begin();
  for (const auto& step : steps) {
    host->WriteXml(KELVO_WRITE_PTZ, hostkit::PtzMessage(camera, step.opcode));
    GiveAll({next, 5});
    if (step.moving) wanted.insert(wanted.end(), next, next + 5);
    next += 5;
  }
  GiveAll({next, frames.end()});
  Finish();
  ExpectRecorded(camera, wanted);
}

TEST_F(RecordTiming, HostLearnsWhenAnInputStartsAndStopsRecording) {
  auto camera = Camera(3);
  camera.context = 2;
  Start({camera});
  GiveInTime(MakeFrames(VideoProvider(camera), kSundayEvening + 40, 1000, Times(120, "IPP"), 200));
  Finish();
  const auto event = [](bool idle, std::int64_t timeMs, const std::string& path) {
    return "<?xml ?><qDVR><Devices ID=\"1114112\"><Device Number=\"3\"><Context Number=\"2\">"
           "<Video><Input Number=\"0\" RecordIdle=\"" +
           std::to_string(idle ? 1 : 0) + "\" Time=\"" + std::to_string(timeMs / 1000) +
           "\" Milliseconds=\"" + std::to_string(timeMs % 1000) + "\"" +
           (path.empty() ? "" : " Path=\"" + path + "\"") +
           " /></Video></Context></Device></Devices></qDVR>";
  };
  std::vector<std::string> wanted = {event(true, kSundayEvening, "")};
  for (const auto& recording : Recordings()) {
    wanted.push_back(event(false, recording.frames.at(0).timeMs, recording.path));
    wanted.push_back(event(true, recording.frames.back().timeMs, recording.path));
  }
  EXPECT_EQ(wanted.size(), 5u);
  const auto events = EventsWith("RecordIdle");
  ASSERT_EQ(events.size(), wanted.size());
  for (std::size_t n = 0; n < wanted.size(); ++n) {
    EXPECT_EQ(events[n].eventClass, KELVO_CLASS_EVENT);
    EXPECT_EQ(events[n].text, wanted[n]);
  }
}

TEST_F(RecordTiming, StatisticsComeAfterAMinuteWithTraffic) {
  auto kept = Camera(0), dropped = Camera(1, kOnAlarm);
  kept.audio = true;
  Start({kept, dropped});
  auto frames = MakeFrames(VideoProvider(kept), kSundayEvening, 40, Times(5, "IPBB"), 1000);
  frames[4].header.FrameFlags = KELVO_FLAG_ALARM;
  frames[8].header.FrameFlags = KELVO_FLAG_MOTION;
  GiveAll(frames);
  GiveAll(MakeFrames(VideoProvider(dropped), kSundayEvening, 40, Times(3, "IPB"), 1000));
  Give(MakeFrame(VideoProvider(kept) + 9, KELVO_FRAME_I, kSundayEvening, 100, 1));
  Give(MakeFrame(VideoProvider(kept), KELVO_FRAME_I, kSundayEvening, 100, 1), KELVO_WRITE_SUB_PES);
  host->WriteXml(KELVO_WRITE_PTZ, hostkit::PtzMessage(kept, 99));
  Tick(59'999);
  EXPECT_EQ(CountLog("Frames Written"), 0);
  Tick(1);
  // The last group of each camera waits for the next key frame.
  std::size_t bytes = 0;
  for (std::size_t n = 0; n < 16; ++n) bytes += frames[n].payload.size();
  const std::string total =
      std::to_string(bytes / 1000) + "," + std::to_string(bytes % 1000 + 1000).substr(1);
  for (const auto& text :
       {"eCnt - eav:31, eptz:1, idev:1, ievt:0, iarc:0, istg:0, icas:0"s,
        "eCnt - adev:0, aarc:0, astg:0"s, "Frames Dropped - I: 2 P: 2 B: 2 Audio: 0 Ch: 1 PES: 1"s,
        "Frames Written - I: 4 P: 4 B: 8 Audio: 0 Motion: 1 Alarm: 1 PTZ: 0"s,
        "Bytes Written - Last: " + total + " Min: " + total}) {
    EXPECT_EQ(CountLog(text), 1) << text;
  }
  // A minute without frames leaves the long-term figures alone.
  Tick(60'000);
  EXPECT_EQ(CountLog("ExecutedLastMin: 4, "), 1);
  EXPECT_EQ(CountLog("Frames Written - I: 0 P: 0 B: 0 Audio: 0 Motion: 0 Alarm: 0 PTZ: 0"), 1);
  EXPECT_EQ(CountLog("Bytes Written - Last: 0 Min: " + total + " Max: " + total), 1);
}

}  // namespace
}  // namespace plugintest
