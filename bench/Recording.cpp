#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Feed.h"
#include "bench/Measure.h"
#include "bench/Scenarios.h"

namespace bench {
namespace {

namespace fs = boost::filesystem;

constexpr int kWarmMiB = 2048;

double Microseconds(std::int64_t ns, std::int64_t frames) {
  return static_cast<double>(ns) / 1000 / static_cast<double>(frames);
}

// CPU time of one write() per frame, a file per camera, from the first byte to the closed files.
std::int64_t BareLoopNs(const Stretch& stretch) {
  const std::int64_t cpu = ProcessCpuNs();
  std::vector<int> files;
  for (int camera = 0; camera < stretch.cameras; ++camera) {
    const std::string path = "bare" + std::to_string(camera);
    files.push_back(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    if (files.back() < 0) throw std::runtime_error("can't create " + path);
  }
  ForEachFrame(stretch, [&](int camera, int, const Unit& unit, std::int64_t) {
    const ssize_t written = ::write(files[static_cast<std::size_t>(camera)], unit.data, unit.size);
    if (written != static_cast<ssize_t>(unit.size)) throw std::runtime_error("bare write failed");
  });
  for (const int file : files) ::close(file);
  const std::int64_t used = ProcessCpuNs() - cpu;
  for (int camera = 0; camera < stretch.cameras; ++camera) {
    fs::remove("bare" + std::to_string(camera));
  }
  return used;
}

struct RecordingFigures {
  double netUs = 0;    // CPU per frame written, net of the generator; median
  double grossUs = 0;  // the generator included
  double bareUs = 0;
  double nullUs = 0;
  RecordingCost last;
};

// Plug-in, bare loop and generator alone, run by turns.
RecordingFigures Compare(PluginHost& host, const Stretch& stretch) {
  std::vector<double> net, gross, bare, null;
  RecordingFigures figures;
  const std::int64_t frames = FrameCount(stretch);
  for (int run = 0; run < kRuns; ++run) {
    null.push_back(Microseconds(NullCostNs(stretch), frames));
    bare.push_back(Microseconds(BareLoopNs(stretch), frames));
    figures.last = RecordStretch(host, stretch);
    gross.push_back(Microseconds(figures.last.cpuNs, figures.last.recorded.frames));
    net.push_back(gross.back() - null.back());
    std::printf(
        "  run %d: plug-in %.2f us a frame (%.0f frames/s of wall time), bare loop %.2f us\n",
        run + 1, net.back(),
        static_cast<double>(figures.last.recorded.frames) * 1e9 /
            static_cast<double>(figures.last.wallNs),
        bare.back());
    std::fflush(stdout);
  }
  figures.netUs = Median(net);
  figures.grossUs = Median(gross);
  figures.bareUs = Median(bare);
  figures.nullUs = Median(null);
  return figures;
}

void PrintCosts(const RecordingFigures& figures) {
  const double meanBytes = static_cast<double>(figures.last.recorded.payloadBytes) /
                           static_cast<double>(figures.last.recorded.frames);
  std::printf("  %lld frames of %.0f bytes in %d files; medians of CPU per frame:\n",
              static_cast<long long>(figures.last.recorded.frames), meanBytes,
              figures.last.recorded.files);
  std::printf(
      "  plug-in %.2f us (with the generator %.2f us), bare loop %.2f us, generator %.2f us\n",
      figures.netUs, figures.grossUs, figures.bareUs, figures.nullUs);
  std::printf("  plug-in: %.0f frames and %.2f GB per CPU second\n", 1e6 / figures.netUs,
              meanBytes / figures.netUs / 1000);
}

}  // namespace

void Recording(const std::string& module) {
  PluginHost host(module);
  const Footage footage = CameraFootage();
  WarmFileSystem(kWarmMiB);
  const RecordingFigures figures =
      Compare(host, {.footage = footage, .cameras = 16, .rounds = 3000});
  PrintCosts(figures);
  Report("CPU of recording 16 cameras / CPU of a bare write loop", figures.netUs / figures.bareUs,
         "x", Wanted::AtMost, 1);

  const Recorded& recorded = figures.last.recorded;
  const double growth =
      static_cast<double>(recorded.fileBytes) / static_cast<double>(recorded.payloadBytes) - 1;
  Report("growth over the elementary streams, index included", growth * 100, "%", Wanted::AtMost,
         0.5);
}

void SmallFrames(const std::string& module) {
  PluginHost host(module);
  const Footage footage = Footage::Synthetic(64u << 20, 1024, kGroup);
  WarmFileSystem(kWarmMiB / 4);
  const RecordingFigures figures =
      Compare(host, {.footage = footage, .cameras = 16, .rounds = 10'000});
  PrintCosts(figures);
  Report("1 KiB frames per CPU second, generator included", 1e6 / figures.grossUs, "",
         Wanted::AtLeast, 1'000'000);
}

void AgainstFfmpeg(const std::string& module) {
  PluginHost host(module);
  constexpr int kStreams = 16;
  ChildCpuNs(
      "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=704x576:rate=25,noise=alls=24:allf=t"
      " -t 40 -c:v mpeg2video -g 25 -bf 0 -b:v 4M -maxrate 6M -bufsize 1200k source.mkv");
  ChildCpuNs("ffmpeg -nostdin -v error -i source.mkv -c copy -f mpeg2video source.m2v");
  const Footage footage = Footage::FromMpeg2("source.m2v");
  const auto rounds = static_cast<std::int64_t>(footage.Units());
  std::printf("  %zu frames of MPEG-2 video, %.0f bytes on average, %d times\n", footage.Units(),
              static_cast<double>(footage.Bytes()) / static_cast<double>(rounds), kStreams);

  const std::string read = "ffmpeg -nostdin -v fatal -stream_loop " + std::to_string(kStreams - 1) +
                           " -i source.mkv -map 0:v -c copy";
  const std::string discard = read + " -f null -";
  const std::string segment = read +
                              " -f segment -segment_time 300 -segment_format vob"
                              " -segment_format_options flush_packets=1 out%03d.mpg";

  WarmFileSystem(kWarmMiB / 2);
  const Stretch stretch{.footage = footage, .cameras = kStreams, .rounds = rounds};
  const std::int64_t frames = rounds * kStreams;
  std::vector<double> ours, theirs;
  for (int run = 0; run < kRuns; ++run) {
    const double reading = Microseconds(ChildCpuNs(discard), frames);
    theirs.push_back(Microseconds(ChildCpuNs(segment), frames) - reading);
    for (int file = 0; fs::remove("out00" + std::to_string(file) + ".mpg"); ++file) {
    }
    const double null = Microseconds(NullCostNs(stretch), FrameCount(stretch));
    const RecordingCost cost = RecordStretch(host, stretch);
    ours.push_back(Microseconds(cost.cpuNs, cost.recorded.frames) - null);
    std::printf("  run %d: plug-in %.2f us a frame, ffmpeg %.2f us (reading took it %.2f us)\n",
                run + 1, ours.back(), theirs.back(), reading);
    std::fflush(stdout);
  }
  Report("CPU of recording / CPU of ffmpeg's segment muxer", Median(ours) / Median(theirs), "x",
         Wanted::Below, 1);
}

void Traced(const std::string& module, int rounds, int cameras, int channels) {
  PluginHost host(module);
  const Footage footage = Footage::Synthetic(4u << 20, kMeanFrame, kGroup);
  const RecordingCost cost = RecordStretch(
      host, {.footage = footage, .cameras = cameras, .channels = channels, .rounds = rounds});
  std::printf("%lld\n", static_cast<long long>(cost.recorded.frames));
}

}  // namespace bench
