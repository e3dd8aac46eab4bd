// kelvo_bench MODULE VERB: one measurement in a process of its own (see run.sh).
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <string>

#include "bench/Scenarios.h"

int main(int argc, char** argv) {
  const std::map<std::string, std::function<void(const std::string&)>> scenarios{
      {"record", bench::Recording},     {"small", bench::SmallFrames},
      {"ffmpeg", bench::AgainstFfmpeg}, {"pending", bench::PendingFrames},
      {"write", bench::WriteCall},      {"realtime", bench::RealTime},
      {"idle", bench::IdleCameras},     {"storage", bench::Storage},
      {"month", bench::StorageMonth},   {"listing", bench::Listing},
      {"playback", bench::Playback},    {"memory", bench::SearchMemory},
      {"bucket", bench::Bucket},        {"scale", bench::Scale},
      {"slowdisk", bench::SlowDisk},
  };
  const std::string verb = argc >= 3 ? argv[2] : "";
  try {
    if (verb == "trace" && argc == 6) {
      bench::Traced(argv[1], std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]));
    } else if (const auto found = scenarios.find(verb); found != scenarios.end()) {
      found->second(argv[1]);
    } else {
      std::fprintf(
          stderr,
          "usage: kelvo_bench MODULE VERB, or MODULE trace ROUNDS CAMERAS CHANNELS; verbs:");
      for (const auto& [name, run] : scenarios) std::fprintf(stderr, " %s", name.c_str());
      std::fprintf(stderr, "\n");
      return 2;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", verb.c_str(), error.what());
    return 1;
  }
  return 0;
}
