#include "tests/plugin/PluginFixture.h"

// The recording decision and the life of files over time, by a clock that the test moves.
namespace plugintest {
using namespace std::string_literals;
namespace {

constexpr std::int64_t kSecond = 1000, kMinute = 60 * kSecond;
constexpr std::int64_t kSundayEvening = 1'750'003'080'000;  // 2025-06-15 15:58:00 UTC, 17:58 local

using RecordTiming = SeamTest;

// Those of the frames that were captured from `first` to `last`, both included.
std::vector<Frame> Between(const std::vector<Frame>& frames, std::int64_t first,
                           std::int64_t last) {
  std::vector<Frame> part;
  for (const auto& frame : frames) {
    if (TimeOf(frame) >= first && TimeOf(frame) <= last) part.push_back(frame);
  }
  return part;
}

void Flag(std::vector<Frame>& frames, std::uint8_t flag) {
  for (auto& frame : frames) frame.header.FrameFlags |= flag;
}

TEST_F(RecordTiming, FileLivesFiveMinutesInTheHourOfItsOpening) {
  bundle.clock.SetNow(kSundayEvening);
  const auto camera = Camera();
  Start({camera});
  const auto frames = MakeFrames(VideoProvider(camera), kSundayEvening, kSecond,
                                 Times(12 * 6 * 60 / 6 / 7, "IPBPBPB"), 200);
  GiveInTime(frames);
  Finish();
  const std::vector<std::string> wanted = {"drives/a/2025/06/15/17/5800-00110080.ps",
                                           "drives/a/2025/06/15/18/0300-00110080.ps",
                                           "drives/a/2025/06/15/18/0800-00110080.ps"};
  EXPECT_EQ(tree.FilesEndingIn(".ps"), wanted);
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 3u);
  for (const auto& recording : recordings) {
    ASSERT_FALSE(recording.frames.empty());
    EXPECT_EQ(recording.frames.front().type, unsigned{KELVO_FRAME_I});
  }
  // A group stays in the file that it began in, also past the five minutes.
  EXPECT_GE(recordings[0].frames.back().timeMs, kSundayEvening + 5 * kMinute - 7 * kSecond);
  const auto found = FramesOf(recordings, kVideoSlot);
  EXPECT_GE(found.size() + 14, frames.size());
  ASSERT_LE(found.size(), frames.size());
  ExpectFrames(found, std::span(frames).first(found.size()));
  ExpectNoTroubleInLog();
}

TEST_F(RecordTiming, ClockSetBackEndsTheFileAtOnce) {
  bundle.clock.SetNow(kSundayEvening);
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
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 2u);
  const char* const names[] = {"17/5750-00110080.ps", "17/5800-00110080.ps"};
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_TRUE(qv::kelvo::Slashed(recordings[i].path).ends_with(names[i])) << recordings[i].path;
  }
  // The later file, by its name, holds the earlier frames.
  auto found = recordings[1].Of(kVideoSlot);
  const auto rest = recordings[0].Of(kVideoSlot);
  found.insert(found.end(), rest.begin(), rest.end());
  ASSERT_EQ(found.size(), 25u);
  ExpectFrames(found, std::span(frames).first(25));
}

TEST_F(RecordTiming, ScheduleFollowsLocalHoursThroughBothTimeChanges) {
  // Sunday, the hour from 02:00 local: twice on the night of 26 October 2025, not at all on that
  // of 29 March 2026.
  auto camera = Camera();
  camera.schedule = {{2, 2, kAlways}};
  const struct {
    std::int64_t firstFrame;
    int kept;  // of frames every ten minutes from then on
    int duplicates;
  } nights[] = {{1'761'433'200'000, 12, 3},  // 2025-10-25 23:00 UTC, 01:00 local
                {1'774'738'800'000, 0, 0}};  // 2026-03-28 23:00 UTC, 00:00 local
  for (const auto& night : nights) {
    SCOPED_TRACE(night.firstFrame);
    bundle.clock.SetNow(night.firstFrame);
    Start({camera});
    // From 01:00 local (00:00 on the March night) over five hours; key frames only.
    const auto frames =
        MakeFrames(VideoProvider(camera), night.firstFrame, 10 * kMinute, Times(30, "I"), 200);
    GiveInTime(frames);
    Finish();
    auto recordings = RecordingsOf(camera);
    std::erase_if(recordings, [&](const PsRecording& recording) {
      return recording.frames.empty() || recording.frames[0].timeMs < night.firstFrame;
    });
    const auto found = FramesOf(recordings, kVideoSlot);
    ASSERT_EQ(found.size(), static_cast<std::size_t>(night.kept));
    EXPECT_EQ(CountLog("Duplicate file name"), night.duplicates);
    log.clear();
    for (const auto* frame : found) {
      const auto hour = (frame->timeMs - 1'761'436'800'000) / (60 * kMinute);
      EXPECT_TRUE(hour == 0 || hour == 1) << frame->timeMs;
    }
  }
}

TEST_F(RecordTiming, MotionKeepsWhatCameBeforeAndAfterIt) {
  // Groups of one second. Camera 0 looks back two seconds; camera 1 so little that motion begins
  // in the middle of a group, which is kept from its key frame on.
  auto far = Camera(0, kOnMotion), close = Camera(1, kOnMotion);
  far.preMotionMs = 2000;
  far.postMotionMs = close.postMotionMs = 1000;
  close.preMotionMs = 300;
  const auto start = Now();
  Start({far, close});
  auto farFrames = MakeFrames(VideoProvider(far), start, 200, Times(30, "IPPPP"), 300);
  auto closeFrames = MakeFrames(VideoProvider(close), start, 200, Times(30, "IPPPP"), 300);
  for (std::size_t n = 0; n < farFrames.size(); ++n) {
    const auto at = static_cast<std::int64_t>(n) * 200;
    if (at >= 10'000 && at <= 12'000) farFrames[n].header.FrameFlags = KELVO_FLAG_MOTION;
    if (at >= 10'600 && at <= 12'000) closeFrames[n].header.FrameFlags = KELVO_FLAG_MOTION;
    Give(farFrames[n]);
    Give(closeFrames[n]);
  }
  Finish();

  auto wanted = Between(farFrames, start + 8'000, start + 13'000);
  Flag(wanted, KELVO_FLAG_MOTION);
  ExpectFrames(FramesOf(RecordingsOf(far), kVideoSlot), wanted);

  wanted = Between(closeFrames, start + 10'400, start + 13'000);
  Flag(wanted, KELVO_FLAG_MOTION);
  const auto lead = Between(closeFrames, start + 10'000, start + 10'200);
  wanted.insert(wanted.begin(), lead.begin(), lead.end());
  ExpectFrames(FramesOf(RecordingsOf(close), kVideoSlot), wanted);
}

TEST_F(RecordTiming, AlarmKeepsBufferedFramesFromItsMomentOn) {
  auto camera = Camera(0, kOnAlarm);
  camera.audio = true;
  const auto start = Now();
  Start({camera}, 5);
  const auto frames = MakeFrames(VideoProvider(camera), start, 200, Times(30, "IPPPP"), 300);
  const auto sound = MakeFrames(AudioProvider(camera), start, 200, Times(150, "A"), 100);
  const auto alarm = [&](bool video, bool begins, std::int64_t at) {
    host->WriteXml(KELVO_WRITE_ACTION,
                   hostkit::AlarmAction(camera, video, 7, begins, (start + at) / 1000,
                                        static_cast<int>((start + at) % 1000)));
  };
  for (std::size_t n = 0; n < frames.size(); ++n) {
    Give(frames[n]);
    Give(sound[n]);
    const auto at = static_cast<std::int64_t>(n) * 200;
    // Raised at second 10 for a moment five seconds ago, the second time while it still holds.
    if (at == 10'000 || at == 10'200) alarm(true, true, 5'000);
    if (at == 10'000) alarm(false, true, 8'000);
    if (at == 14'000) {
      alarm(true, false, 15'000);
      alarm(false, false, 14'600);
    }
  }
  Finish();
  const auto recordings = RecordingsOf(camera);
  auto wanted = Between(frames, start + 5'000, start + 15'000);
  Flag(wanted, KELVO_FLAG_ALARM);
  ExpectFrames(FramesOf(recordings, kVideoSlot), wanted);
  wanted = Between(sound, start + 8'000, start + 14'600);
  Flag(wanted, KELVO_FLAG_ALARM);
  ExpectFrames(FramesOf(recordings, kAudioSlot), wanted);
}

TEST_F(RecordTiming, TimeLapseKeepsKeyFramesAnIntervalApart) {
  auto camera = Camera(0, kOnAlarm);
  camera.audio = true;
  const auto start = Now();
  Start({camera});
  host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::TimeLapseDelta(1000));
  const auto frames = MakeFrames(VideoProvider(camera), start, 200, Times(80, "IP"), 300);
  const auto sound = MakeFrames(AudioProvider(camera), start, 200, Times(160, "A"), 100);
  for (std::size_t n = 0; n < frames.size(); ++n) {
    Give(frames[n]);
    Give(sound[n]);
  }
  Finish();
  // Key frames come every 400 ms: each third one is the first that is a second away.
  std::vector<Frame> wanted;
  for (std::size_t n = 0; n + 2 < frames.size(); n += 6) wanted.push_back(frames[n]);
  const auto recordings = RecordingsOf(camera);
  ExpectFrames(FramesOf(recordings, kVideoSlot), wanted);
  EXPECT_TRUE(FramesOf(recordings, kAudioSlot).empty());
}

TEST_F(RecordTiming, MovingCameraCountsAsMotionInEachGroup) {
  const auto camera = Camera(0, kOnMotion);
  Start({camera});
  const auto start = Now();
  const auto frames = MakeFrames(VideoProvider(camera), start, 1000, Times(5 * 19 + 2, "I"), 300);
  std::vector<Frame> wanted;
  const struct {
    int opcode;
    bool moving;
  } steps[] = {{31, false}, {17, true},  {32, true}, {54, true}, {31, false},
               {18, true},  {31, false}, {33, true}, {31, true}, {54, true},
               {32, false}, {34, true},  {52, true}, {32, true}, {31, true},
               {54, false}, {53, true},  {99, true}, {54, false}};
  std::size_t n = 0;
  for (const auto& step : steps) {
    host->WriteXml(KELVO_WRITE_PTZ, hostkit::PtzMessage(camera, step.opcode));
    for (int i = 0; i < 5; ++i, ++n) {
      Give(frames[n]);
      if (step.moving) wanted.push_back(frames[n]);
    }
  }
  GiveAll(std::span(frames).subspan(n));
  Finish();
  ExpectFrames(FramesOf(RecordingsOf(camera), kVideoSlot), wanted);
}

TEST_F(RecordTiming, HostLearnsWhenAnInputStartsAndStopsRecording) {
  bundle.clock.SetNow(kSundayEvening);
  auto camera = Camera(3);
  camera.context = 2;
  Start({camera});
  const auto frames =
      MakeFrames(VideoProvider(camera), kSundayEvening + 40, 1000, Times(120, "IPP"), 200);
  GiveInTime(frames);
  Finish();
  const auto event = [](bool idle, std::int64_t timeMs, const std::string& path) {
    return "<?xml ?><qDVR><Devices ID=\"1114112\"><Device Number=\"3\"><Context Number=\"2\">"
           "<Video><Input Number=\"0\" RecordIdle=\"" +
           std::to_string(idle ? 1 : 0) + "\" Time=\"" + std::to_string(timeMs / 1000) +
           "\" Milliseconds=\"" + std::to_string(timeMs % 1000) + "\"" +
           (path.empty() ? "" : " Path=\"" + path + "\"") +
           " /></Video></Context></Device></Devices></qDVR>";
  };
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 2u);
  std::vector<std::string> wanted = {event(true, kSundayEvening, "")};
  for (const auto& recording : recordings) {
    wanted.push_back(event(false, recording.frames.front().timeMs, recording.path));
    wanted.push_back(event(true, recording.frames.back().timeMs, recording.path));
  }
  std::vector<std::string> found;
  for (const auto& one : host->TakeEvents()) {
    if (one.xml.find("RecordIdle") == std::string::npos) continue;
    EXPECT_EQ(one.eventClass, KELVO_CLASS_EVENT);
    found.push_back(one.xml);
  }
  EXPECT_EQ(found, wanted);
}

TEST_F(RecordTiming, StatisticsComeAfterAMinuteWithTraffic) {
  auto kept = Camera(0), dropped = Camera(1, kOnAlarm);
  kept.audio = true;
  Start({kept, dropped});
  const auto start = Now();
  auto frames = MakeFrames(VideoProvider(kept), start, 40, Times(5, "IPBB"), 1000);
  frames[4].header.FrameFlags = KELVO_FLAG_ALARM;
  frames[8].header.FrameFlags = KELVO_FLAG_MOTION;
  GiveAll(frames);
  GiveAll(MakeFrames(VideoProvider(dropped), start, 40, Times(3, "IPB"), 1000));
  Give(MakeFrame(VideoProvider(kept) + 9, KELVO_FRAME_I, start, 100, 1));
  Give(MakeFrame(VideoProvider(kept), KELVO_FRAME_I, start, 100, 1), KELVO_WRITE_SUB_PES);
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
  log.clear();
  Tick(60'000);
  EXPECT_EQ(CountLog("ExecutedLastMin: 4, "), 1);
  EXPECT_EQ(CountLog("Frames Written - I: 0 P: 0 B: 0 Audio: 0 Motion: 0 Alarm: 0 PTZ: 0"), 1);
  EXPECT_EQ(CountLog("Bytes Written - Last: 0 Min: " + total + " Max: " + total), 1);
}

}  // namespace
}  // namespace plugintest
