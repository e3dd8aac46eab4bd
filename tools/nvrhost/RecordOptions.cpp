#include "nvrhost/RecordOptions.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "nvrhost/OptionGroup.h"
#include "nvrhost/TimeOption.h"

namespace nvrhost {
namespace {

// "A:B" in seconds, fractions allowed.
Span ParseSpan(const std::string& option, const std::string& text) {
  double first = 0, second = 0;
  int end = 0;
  if (std::sscanf(text.c_str(), "%lf:%lf%n", &first, &second, &end) != 2 ||
      static_cast<std::size_t>(end) != text.size() || !(first >= 0) || !(second > 0) ||
      first > 1e9 || second > 1e9) {
    throw std::runtime_error(option + " wants two times in seconds, as in 5:2, and got \"" + text +
                             "\"");
  }
  return {static_cast<std::int64_t>(first * 1e6), static_cast<std::int64_t>(second * 1e6)};
}

void AddRunOptions(CLI::App& command, RecordOptions& options) {
  OptionGroup run(command, "Run");
  AddPluginOption(command, "Run", options.plugin);
  run.AddShown("--dir", options.directory, "DIR",
               "working directory; its drives are the directories in DIR/drives (disk1 is made if "
               "there is none)");
  run.AddNumber("--cameras", options.cameras, 1, 256, "N", "number of cameras");
  run.AddNumber("--channels-per-device", options.channelsPerDevice, 1, 16, "N",
                "so many cameras share the files of one device");
  run.AddNumber("--seconds", options.seconds, 0.1, 1e6, "S",
                "length of the recording in capture time");
  run.AddChoice("--speed", options.speed, {"realtime", "max"},
                "realtime, or max: as fast as the plug-in takes it");
  run.Add("--start", options.start, "TIME",
          "capture time of the start: \"YYYY-MM-DD HH:MM:SS\" local, with a Z behind it UTC, or "
          "@SECONDS [now; at speed max so that it ends now]");
  AddLogOption(command, "Run", options.logLevel);
  run.Add("--ledger", options.ledger, "FILE",
          "write a line for each frame given, with a hash of its content, for play --verify");
  command.add_flag("--events", options.events, "show the plug-in's XML events")->group("Run");
  command
      .add_flag("--report", options.report,
                "at the end, show the tree and what each new file holds")
      ->group("Run");
}

void AddPictureOptions(CLI::App& command, RecordOptions& options) {
  OptionGroup picture(command, "Picture and sound");
  picture.AddShown("--source", options.source, "test|FILE",
                   "FFmpeg's test pictures, or a video file: passed on, not encoded again, and "
                   "repeated");
  picture.AddChoices("--codec", options.codecs, {"h264", "h265", "mpeg2", "mjpeg", "mixed"},
                     "h264, h265, mpeg2, mjpeg; several, with commas, go round the cameras; mixed "
                     "stands for these four");
  picture.AddChoices("--audio", options.audio, {"none", "aac", "g711"},
                     "none, aac, g711; several go round the cameras; with a file, anything but "
                     "none takes the file's own");
  picture.AddNumber("--fps", options.fps, 1.0, 240.0, "N", "frames per second");
  picture.AddShown("--size", options.size, "WxH", "width and height");
  picture.AddNumber("--gop", options.group, 1, 600, "N", "frames from one I frame to the next");
  picture.AddNumber("--bframes", options.bFrames, 0, 8, "N", "B frames in a row");
  picture.AddNumber("--bitrate", options.kilobits, 0, 1'000'000, "KBITS",
                    "per second; 0 takes what suits the codec");
  picture.AddNumber("--loop", options.loopSeconds, 1.0, 600.0, "S",
                    "how much is encoded and then repeated");
  picture.AddNumber("--distinct", options.distinct, 1, 256, "N",
                    "encode at most so many pictures; further cameras repeat them");
  picture.AddNumber("--metadata", options.metadataBytes, 0, 128, "BYTES",
                    "metadata that goes with each frame");
}

void AddDecisionOptions(CLI::App& command, RecordOptions& options) {
  OptionGroup decision(command, "What is kept");
  decision.AddChoice("--record", options.record, {"always", "motion", "alarm", "none"},
                     "schedule for the whole week: always, motion, alarm, none (no entry at all); "
                     "an alarm records under each of them");
  decision.Add("--motion", options.motion, "PERIOD:LENGTH",
               "LENGTH seconds of motion at the beginning of each PERIOD");
  decision.AddNumber("--pre-motion", options.preMotionMs, 0, 600'000, "MS", "kept before motion");
  decision.AddNumber("--post-motion", options.postMotionMs, 0, 600'000, "MS", "kept after motion");
  decision.Add("--alarm", options.alarms, "AT:LENGTH",
               "an alarm of all cameras, in seconds from the start; repeatable");
  decision.AddNumber("--pre-alarm", options.preAlarmSeconds, 0, 3600, "S", "kept before an alarm");
  decision.AddNumber("--time-lapse", options.timeLapseMs, 0, 86'400'000, "MS",
                     "keep one I frame in each such time; 0 is off");
  decision.Add("--ptz", options.ptz, "AT:LENGTH",
               "all cameras are moved, which counts as motion; repeatable");
}

}  // namespace

void AddRecordOptions(CLI::App& command, RecordOptions& options) {
  AddRunOptions(command, options);
  AddPictureOptions(command, options);
  AddDecisionOptions(command, options);
  AddStorageOptions(command, options.storage, CameraRules::Yes);
  command.add_flag("--drives", options.driveTable, "at the end, show the drives as last told")
      ->group("Run");
}

Scenario MakeScenario(RecordOptions& options) {
  int end = 0;
  if (std::sscanf(options.size.c_str(), "%dx%d%n", &options.width, &options.height, &end) != 2 ||
      static_cast<std::size_t>(end) != options.size.size() || options.width < 32 ||
      options.height < 32 || options.width > 4080 || options.height > 4080 ||
      options.width % 2 != 0 || options.height % 2 != 0) {
    throw std::runtime_error(
        "--size wants even numbers from 32 to 4080, as in 1280x720, and got \"" + options.size +
        "\"");
  }

  Scenario scenario;
  scenario.durationUs = static_cast<std::int64_t>(options.seconds * 1e6);
  scenario.preAlarmSeconds = options.preAlarmSeconds;
  if (!options.motion.empty()) {
    const Span motion = ParseSpan("--motion", options.motion);
    if (motion.beginUs < 1'000) throw std::runtime_error("--motion: the period must be longer");
    scenario.motionEveryUs = motion.beginUs;
    scenario.motionLengthUs = motion.lengthUs;
  }
  for (const auto& text : options.alarms) scenario.alarms.push_back(ParseSpan("--alarm", text));
  for (const auto& text : options.ptz) scenario.ptz.push_back(ParseSpan("--ptz", text));

  if (!options.start.empty()) {
    scenario.startUs = ParseTime("--start", options.start) * 1'000'000;
  } else {
    scenario.startUs = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
    if (options.FullSpeed()) scenario.startUs -= scenario.durationUs;
  }
  if ((scenario.startUs + scenario.durationUs) / 1'000'000 > kLatestTime) {
    throw std::runtime_error("the recording would end after the year 2106");
  }
  return scenario;
}

}  // namespace nvrhost
