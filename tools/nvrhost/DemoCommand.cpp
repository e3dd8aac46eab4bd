#include "nvrhost/DemoCommand.h"

#include <boost/filesystem.hpp>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>
#include <vector>

#include "nvrhost/MediaProbe.h"
#include "nvrhost/PlayCommand.h"
#include "nvrhost/RecordCommand.h"
#include "nvrhost/SearchCommand.h"
#include "nvrhost/ThumbsCommand.h"

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;

constexpr int kCameras = 4;
constexpr double kFramesPerSecond = 25;
constexpr int kPreAlarmSeconds = 2;

// What was checked, and how it came out.
class Checks {
 public:
  void Add(bool good, std::string text) { all.emplace_back(good, std::move(text)); }
  // A step that doesn't come to its end is a failed check.
  template <typename Step>
  void Run(const char* title, Step step) {
    std::printf("\n--- %s\n", title);
    try {
      step();
    } catch (const std::exception& error) {
      Add(false, std::string(title) + ": " + error.what());
    }
    std::fflush(stdout);
  }
  [[nodiscard]] int Report() const {
    bool good = true;
    std::printf("\n--- Checked\n");
    for (const auto& [passed, text] : all) {
      std::printf("%s  %s\n", passed ? "ok  " : "FAIL", text.c_str());
      good = good && passed;
    }
    std::printf("%s\n", good ? "all is well" : "something is wrong");
    return good ? 0 : 1;
  }

 private:
  std::vector<std::pair<bool, std::string>> all;
};

RecordOptions DemoRecording(const fs::path& directory, double seconds) {
  RecordOptions options;
  options.directory = directory.string();
  options.cameras = kCameras;
  options.seconds = seconds;
  options.fps = kFramesPerSecond;
  options.codecs = {"h264", "h265", "mpeg2", "mjpeg"};
  options.audio = {"aac", "none", "g711", "none"};
  options.motion = "6:2";
  // The alarm message is dated back by the pre-alarm, so alarm footage begins at 2 s.
  options.alarms = {"4:2"};
  options.preAlarmSeconds = kPreAlarmSeconds;
  options.metadataBytes = 30;
  options.report = true;
  options.ledger = (directory / "given.ledger").string();
  return options;
}

void CheckExport(Checks& checks, const PlayTotals& played, const std::string& path) {
  const auto probe = ProbeMedia(path);
  checks.Add(probe.errors == 0,
             "FFmpeg decodes " + path + " with " + std::to_string(probe.errors) + " errors");
  checks.Add(probe.videoCodec == "h264", "its video is " + probe.videoCodec);
  checks.Add(probe.videoFrames == played.videoFrames && probe.audioFrames > 0,
             "it has " + std::to_string(probe.videoFrames) + " of " +
                 std::to_string(played.videoFrames) + " pictures, and sound");
  const double seconds = static_cast<double>(played.videoFrames) / kFramesPerSecond;
  checks.Add(std::abs(probe.videoSeconds - seconds) < 2 / kFramesPerSecond,
             "it is " + std::to_string(probe.videoSeconds) + " s long, " + std::to_string(seconds) +
                 " s were played");
}

}  // namespace

int Demo(const std::string& directory, double seconds, const std::string& programPath) {
  const fs::path base = fs::absolute(directory);
  if (fs::exists(base / "drives")) {
    throw std::runtime_error(base.string() + " holds recordings already; name a fresh directory");
  }
  fs::create_directories(base);
  SearchOptions search;
  search.directory = base.string();
  Checks checks;

  checks.Run("Recording four cameras", [&] {
    checks.Add(Record(DemoRecording(base, seconds), programPath) == 0,
               "recording: all buffers came back, the files add up");
  });
  checks.Run("What is there", [&] {
    ListOptions options;
    options.search = search;
    checks.Add(List(options, programPath) == 0, "search: footage was found");
  });
  checks.Run("Playing everything back", [&] {
    PlayOptions options;
    options.search = search;
    options.ledger = (base / "given.ledger").string();
    options.complete = true;
    const auto played = PlayRange(options, programPath);
    checks.Add(played.good && played.verified == played.frames,
               "playback: " + std::to_string(played.verified) + " of " +
                   std::to_string(played.frames) + " frames are, byte for byte, what was given");
    // What is undecided at the end isn't kept: the pre-alarm and a group of each camera at most.
    const double expected = kCameras * kFramesPerSecond * (seconds - 2 - kPreAlarmSeconds);
    checks.Add(static_cast<double>(played.videoFrames) >= expected,
               "playback: " + std::to_string(played.videoFrames) + " pictures of " +
                   std::to_string(kCameras) + " cameras");
  });
  checks.Run("Exporting one camera", [&] {
    PlayOptions options;
    options.search = search;
    options.search.cameras = {"1"};
    options.exportPath = (base / "camera1.mp4").string();
    const auto played = PlayRange(options, programPath);
    CheckExport(checks, played, options.exportPath);
  });
  checks.Run("Contact sheet", [&] {
    ThumbsOptions options;
    options.search = search;
    options.output = (base / "contact.png").string();
    const auto made = MakeThumbs(options, programPath);
    checks.Add(made.filled == made.cells, "contact sheet: " + std::to_string(made.filled) + " of " +
                                              std::to_string(made.cells) + " cells have a picture");
  });
  return checks.Report();
}

}  // namespace nvrhost
