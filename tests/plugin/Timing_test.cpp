#include <array>
#include <cstdlib>

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

// Each is raised for a moment five seconds ago, the second one while the first still holds.
TEST_F(RecordTiming, AlarmsReachFromTheirBeginningToTheirEnd) {
  auto camera = Camera(0, kOnAlarm);
  camera.audio = true;
  Start({camera}, 5);
  auto video = MakeFrames(VideoProvider(camera), kSundayEvening, 200, Times(30, "IPPPP"), 300);
  auto sound = MakeFrames(AudioProvider(camera), kSundayEvening, 200, Times(150, "A"), 100);
  const struct {
    std::size_t given;  // with that frame
    bool video, begins;
    std::int64_t moment;
  } alarms[] = {{50, true, true, 5'000},
                {50, false, true, 8'000},
                {51, true, true, 5'000},
                {70, true, false, 15'000},
                {70, false, false, 14'600}};
  for (std::size_t n = 0; n < video.size(); ++n) {
    GiveAll(std::array{video[n], sound[n]});
    for (const auto& alarm : alarms) {
      if (alarm.given != n) continue;
      const auto moment = kSundayEvening + alarm.moment;
      host->WriteXml(KELVO_WRITE_ACTION,
                     hostkit::AlarmAction(camera, alarm.video, 7, alarm.begins, moment / 1000,
                                          static_cast<int>(moment % 1000)));
    }
  }
  Finish();
  for (auto* frames : {&video, &sound}) {
    for (auto& frame : *frames) frame.header.FrameFlags = KELVO_FLAG_ALARM;
  }
  ExpectRecorded(camera, std::span(video).subspan(25, 51));
  ExpectRecorded(camera, std::span(sound).subspan(40, 34), kAudioSlot);
}

TEST_F(RecordTiming, MovingCameraCountsAsMotionInEachGroup) {
  const auto camera = Camera(0, kOnMotion);
  Start({camera});
  // Negative: behind it the camera stands.
  const int opcodes[] = {-31, 17, 32, 54, -31, 18,  -31, 33, 31, 54,
                         -32, 34, 52, 32, 31,  -54, 53,  99, -54};
  const auto frames =
      MakeFrames(VideoProvider(camera), kSundayEvening, 1000, Times(5 * 19 + 2, "I"), 300);
  std::vector<Frame> wanted;
  auto next = frames.begin();
  for (const int opcode : opcodes) {
    host->WriteXml(KELVO_WRITE_PTZ, hostkit::PtzMessage(camera, std::abs(opcode)));
    GiveAll({next, 5});
    if (opcode > 0) wanted.insert(wanted.end(), next, next + 5);
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
