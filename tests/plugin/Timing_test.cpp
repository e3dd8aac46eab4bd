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
};

// Frames from `first` to `last`, both included, in milliseconds after the beginning.
struct Stretch {
  std::int64_t first = 1, last = 0;
  std::uint8_t flags = 0;     // that are added
  std::int64_t stepMs = 200;  // from one to the next
};

std::vector<Frame> Of(const std::vector<Frame>& frames, const std::vector<Stretch>& stretches) {
  std::vector<Frame> part;
  for (const auto& stretch : stretches) {
    for (std::int64_t at = stretch.first; at <= stretch.last; at += stretch.stepMs) {
      part.push_back(frames.at(static_cast<std::size_t>(at / 200)));
      part.back().header.FrameFlags |= stretch.flags;
    }
  }
  return part;
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

TEST_F(RecordTiming, MotionAlarmAndTimeLapseKeepWhatBelongsToThem) {
  struct Alarm {
    std::int64_t given;
    bool video, begins;
    std::int64_t moment;
  };
  const struct {
    const char* name;
    int record, preMotionMs, postMotionMs, preAlarmSeconds, lapseMs;
    const char* group;
    Stretch motion;
    std::vector<Alarm> alarms;
    std::vector<Stretch> video, sound;  // what is kept
  } rows[] = {{"looks back two seconds",
               kOnMotion,
               2000,
               1000,
               0,
               0,
               "IPPPP",
               {10'000, 12'000},
               {},
               {{8'000, 13'000, KELVO_FLAG_MOTION}},
               {}},
              {"a group that motion begins in is kept from its key frame on",
               kOnMotion,
               300,
               1000,
               0,
               0,
               "IPPPP",
               {10'600, 12'000},
               {},
               {{10'000, 10'200}, {10'400, 13'000, KELVO_FLAG_MOTION}},
               {}},
              {"raised for a moment five seconds ago, the second time while it still holds",
               kOnAlarm,
               0,
               0,
               5,
               0,
               "IPPPP",
               {},
               {{10'000, true, true, 5'000},
                {10'000, false, true, 8'000},
                {10'200, true, true, 5'000},
                {14'000, true, false, 15'000},
                {14'000, false, false, 14'600}},
               {{5'000, 15'000, KELVO_FLAG_ALARM}},
               {{8'000, 14'600, KELVO_FLAG_ALARM}}},
              {"of key frames 400 ms apart each third is a second away",
               kOnAlarm,
               0,
               0,
               0,
               1000,
               "IP",
               {},
               {},
               {{0, 28'800, 0, 1200}},
               {}}};
  int device = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto camera = Camera(device++, row.record);
    camera.preMotionMs = row.preMotionMs;
    camera.postMotionMs = row.postMotionMs;
    camera.audio = row.record == kOnAlarm;
    Start({camera}, row.preAlarmSeconds);
    Tell(hostkit::TimeLapseDelta(row.lapseMs));
    const std::string kinds = Times(150, row.group).substr(0, 150);
    auto frames = MakeFrames(VideoProvider(camera), kSundayEvening, 200, kinds, 300);
    const auto sound = MakeFrames(AudioProvider(camera), kSundayEvening, 200, Times(150, "A"), 100);
    for (std::size_t n = 0; n < frames.size(); ++n) {
      const auto at = static_cast<std::int64_t>(n) * 200;
      if (row.motion.first <= at && at <= row.motion.last) {
        frames[n].header.FrameFlags = KELVO_FLAG_MOTION;
      }
      Give(frames[n]);
      if (camera.audio) Give(sound[n]);
      for (const auto& alarm : row.alarms) {
        if (alarm.given != at) continue;
        const auto moment = kSundayEvening + alarm.moment;
        host->WriteXml(KELVO_WRITE_ACTION,
                       hostkit::AlarmAction(camera, alarm.video, 7, alarm.begins, moment / 1000,
                                            static_cast<int>(moment % 1000)));
      }
    }
    Finish();
    ExpectRecorded(camera, Of(frames, row.video));
    ExpectRecorded(camera, Of(sound, row.sound), kAudioSlot);
  }
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

TEST_F(RecordTiming, NetworkDriveThatComesOrGoesEndsAllFilesAndIsSaved) {
  const std::string disk = tree.MakeDirectory("net");
  const std::string target = "<Portal><Target ID=\"1\" Enabled=\"1\"><Partition MountPoint=\"" +
                             disk + "\"/></Target></Portal>";
  Start({Camera()});
  for (const auto& [message, changes] : {std::pair{target, 1}, {target, 1}, {""s, 2}}) {
    Tick(kSecond);
    Tell("<qDVR><Archives ID=\"3735552\">" + message + "</Archives></qDVR>");
    EXPECT_EQ(CountLog("Closed "), changes);
    EXPECT_EQ(CountLog("Opened "), changes + 1);
    EXPECT_EQ(CountEvents("TimeLapse="), changes + 1) << "only the settings tell it";
    EXPECT_NE(tree.Read("kelvo.xml").find("Name=\"" + disk), std::string::npos) << "is kept";
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
  // A channel that the camera doesn't have, and cameras that aren't there.
  for (const std::uint32_t provider : {VideoProvider(kept) + 9, 0x00770000u, 0u}) {
    Give(MakeFrame(provider, KELVO_FRAME_I, kSundayEvening, 100, 1));
  }
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
       {"eCnt - eav:33, eptz:1, idev:1, ievt:0, iarc:0, istg:0, icas:0"s,
        "eCnt - adev:0, aarc:0, astg:0"s, "Frames Dropped - I: 2 P: 2 B: 2 Audio: 0 Ch: 1 PES: 1"s,
        "Frames Written - I: 4 P: 4 B: 8 Audio: 0 Motion: 1 Alarm: 1 PTZ: 0"s,
        "Bytes Written - Last: " + total + " Min: " + total}) {
    EXPECT_EQ(CountLog(text), 1) << text;
  }
  // A minute without frames leaves the long-term figures alone.
  Tick(60'000);
  EXPECT_EQ(CountLog("ExecutedLastMin: 4, "), 1);
  EXPECT_EQ(host->CountLines(KELVO_LOG_CRITICAL, "write invalid provider ID 00770000!!!"), 1u);
  EXPECT_EQ(CountLog("write invalid provider ID "), 2);
  EXPECT_EQ(CountLog("Frames Written - I: 0 P: 0 B: 0 Audio: 0 Motion: 0 Alarm: 0 PTZ: 0"), 1);
  EXPECT_EQ(CountLog("Bytes Written - Last: 0 Min: " + total + " Max: " + total), 1);
}

}  // namespace
}  // namespace plugintest
