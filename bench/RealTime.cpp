#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "bench/Feed.h"
#include "bench/Measure.h"
#include "bench/Scenarios.h"

namespace bench {
namespace {

constexpr int kCameras = 64;
constexpr int kFramesPerSecond = 25;

// Gives 64 x 25 frames a second, evenly spread, each in a buffer of its own as a capture card or a
// network stack would fill it. Returns the process's CPU time as a share of the wall time.
double PacedLoad(const Footage& footage, KelvoExport write, std::int64_t firstRound, int seconds) {
  const auto tick = std::chrono::nanoseconds(1'000'000'000 / (kCameras * kFramesPerSecond));
  auto due = std::chrono::steady_clock::now();
  static const std::int64_t startMs = NowMs();
  KelvoWriteBlock block{};
  KelvoWriteReply reply{};
  const std::int64_t cpu = ProcessCpuNs(), wall = WallNs();
  const Stretch stretch{.footage = footage,
                        .cameras = kCameras,
                        .firstRound = firstRound,
                        .rounds = seconds * kFramesPerSecond};
  ForEachFrame(stretch, [&](int camera, int channel, const Unit& unit, std::int64_t round) {
    due += tick;
    std::this_thread::sleep_until(due);
    FillBlock(block, camera, channel, unit, startMs + round * 1000 / kFramesPerSecond);
    block.Payload = OwnBuffer(unit.data, unit.size);
    Outstanding::Given();
    write(&block, &reply);
  });
  return static_cast<double>(ProcessCpuNs() - cpu) / static_cast<double>(WallNs() - wall);
}

}  // namespace

void RealTime(const std::string& module) {
  const Footage footage = CameraFootage();
  WarmFileSystem(1024);
  constexpr int kSettleSeconds = 3, kSeconds = 20, kNullSeconds = 8;
  const double generator = PacedLoad(footage, NullWrite, 0, kNullSeconds);
  const double before = ResidentMiB() - static_cast<double>(footage.Bytes()) / (1 << 20);

  PluginHost host(module);
  const Drives drives(kCameras);
  host.Start({.count = kCameras});
  (void)PacedLoad(footage, host.Write(), 0, kSettleSeconds);
  const double load = PacedLoad(footage, host.Write(), kSettleSeconds * kFramesPerSecond, kSeconds);
  const double resident = ResidentMiB() - static_cast<double>(footage.Bytes()) / (1 << 20);
  const std::int64_t outstanding = Outstanding::Count();
  host.Stop();

  std::printf("  %.2f %% of a core with the generator, %.2f %% the generator alone\n", load * 100,
              generator * 100);
  std::printf("  resident %.1f MiB, of which %.1f MiB the host before Load; %lld frames pending\n",
              resident, before, static_cast<long long>(outstanding));
  Report("64 cameras x 25 frames/s: share of one core", (load - generator) * 100, "%",
         Wanted::Below, 5);
  Report("64 cameras x 25 frames/s: resident, pending payloads included", resident, " MiB",
         Wanted::Below, 300);
}

void IdleCameras(const std::string& module) {
  const Drives drives(kCameras);
  const double before = ResidentMiB();
  PluginHost host(module);
  const double loaded = ResidentMiB();
  host.Start({.count = kCameras});
  const double idle = ResidentMiB();
  host.Stop();
  std::printf(
      "  %.1f MiB before, %.1f MiB with the module in memory, %.1f MiB with %d files open\n",
      before, loaded, idle, kCameras);
  Report("64 idle cameras: resident beyond the host's own", idle - before, " MiB", Wanted::Below,
         32);
}

}  // namespace bench
