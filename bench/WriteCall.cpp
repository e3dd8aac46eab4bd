#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "bench/Feed.h"
#include "bench/Measure.h"
#include "bench/Scenarios.h"

namespace bench {
namespace {

// How calls are made: in batches, between which the thread pauses or just keeps the brake.
struct Pace {
  int batches;
  int callsPerBatch;
  std::chrono::microseconds pause;
};

// CPU time of this thread for one call of `write` and for reading the clock around its batch, in
// nanoseconds; the mean.
double CallCostNs(KelvoExport write, const Footage& footage, std::int64_t startMs,
                  const Pace& pace) {
  constexpr std::int64_t kOutstanding = 4000;
  KelvoWriteBlock block{};
  KelvoWriteReply reply{};
  std::int64_t index = 0, total = 0;
  for (int batch = 0; batch < pace.batches; ++batch) {
    if (pace.pause.count() != 0) std::this_thread::sleep_for(pace.pause);
    Outstanding::Throttle(kOutstanding);
    const std::int64_t start = ThreadCpuNs();
    for (int i = 0; i < pace.callsPerBatch; ++i, ++index) {
      FillBlock(block, 0, 0, footage.At(0, index), startMs + index * 40);
      Outstanding::Given();
      write(&block, &reply);
    }
    total += ThreadCpuNs() - start;
  }
  return static_cast<double>(total) / static_cast<double>(index);
}

// The same less what it takes without a plug-in, where the clock and the caches are as cold.
double NetCallCostNs(const PluginHost& host, const Footage& footage, std::int64_t startMs,
                     const Pace& pace) {
  const double null = CallCostNs(NullWrite, footage, startMs, pace);
  return CallCostNs(host.Write(), footage, startMs, pace) - null;
}

}  // namespace

void WriteCall(const std::string& module) {
  constexpr Pace kRealTime{
      .batches = 3000, .callsPerBatch = 1, .pause = std::chrono::milliseconds(1)};
  constexpr Pace kBusy{.batches = 1000, .callsPerBatch = 32, .pause = {}};
  constexpr std::int64_t kHourMs = 3'600'000;
  const Footage footage = CameraFootage();
  WarmFileSystem(1024);
  const Drives drives(1);
  PluginHost host(module);
  host.Start({});
  const double waiting = NetCallCostNs(host, footage, NowMs(), kRealTime);
  const double busy = NetCallCostNs(host, footage, NowMs() + kHourMs, kBusy);
  host.Drain();
  host.Stop();
  std::printf("  one call a millisecond: %.0f ns; without a pause: %.0f ns\n", waiting, busy);
  Report("CPU of a Write call, one a millisecond", waiting, " ns", Wanted::Below, 1000);
  Report("CPU of a Write call, without a pause", busy, " ns", Wanted::Below, 1000);
}

}  // namespace bench
