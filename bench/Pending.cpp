#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/Feed.h"
#include "bench/Measure.h"
#include "bench/Scenarios.h"

namespace bench {
namespace {

constexpr int kPendingRuns = 3;

// What one channel layout costs once as many frames wait as its pre-alarm time holds.
struct Waiting {
  Cameras cameras;
  int intervalMs;
  std::int64_t fillRounds;     // until the pre-alarm time is full
  std::int64_t measureRounds;  // timed
};

struct WaitingCost {
  double usPerFrame;
  std::int64_t pending;
};

WaitingCost Measure(PluginHost& host, const Footage& footage, const Waiting& waiting) {
  Stretch stretch{.footage = footage,
                  .cameras = waiting.cameras.count,
                  .channels = waiting.cameras.channels,
                  .rounds = waiting.fillRounds,
                  .intervalMs = waiting.intervalMs,
                  .maxOutstanding = 1'000'000'000};
  const Drives drives(stretch.cameras);
  host.Start(waiting.cameras);
  const std::int64_t startMs = NowMs();
  Feed(stretch, host.Write(), startMs);
  host.Drain();
  const std::int64_t pending = Outstanding::Count();

  stretch.firstRound = stretch.rounds;
  stretch.rounds = waiting.measureRounds;
  // Room for the queue and for a whole group of every channel.
  stretch.maxOutstanding = pending + 8000;
  const std::int64_t null = NullCostNs({.footage = footage,
                                        .cameras = stretch.cameras,
                                        .channels = stretch.channels,
                                        .firstRound = stretch.firstRound,
                                        .rounds = stretch.rounds,
                                        .intervalMs = stretch.intervalMs,
                                        .maxOutstanding = stretch.maxOutstanding});
  const std::int64_t cpu = ProcessCpuNs();
  Feed(stretch, host.Write(), startMs);
  host.Drain();
  const std::int64_t used = ProcessCpuNs() - cpu - null;
  host.Stop();
  return {static_cast<double>(used) / 1000 / static_cast<double>(FrameCount(stretch)), pending};
}

// Costs of all layouts, run by turns; medians.
std::vector<double> Measure(PluginHost& host, const Footage& footage,
                            const std::vector<Waiting>& layouts) {
  std::vector<std::vector<double>> costs(layouts.size());
  std::vector<std::int64_t> pending(layouts.size());
  for (int run = 0; run < kPendingRuns; ++run) {
    for (std::size_t i = 0; i < layouts.size(); ++i) {
      const WaitingCost cost = Measure(host, footage, layouts[i]);
      costs[i].push_back(cost.usPerFrame);
      pending[i] = cost.pending;
    }
  }
  std::vector<double> medians;
  for (std::size_t i = 0; i < layouts.size(); ++i) {
    medians.push_back(Median(costs[i]));
    std::printf("  %2d channel(s), %6lld pending: %.2f us a frame\n",
                layouts[i].cameras.count * layouts[i].cameras.channels,
                static_cast<long long>(pending[i]), medians.back());
  }
  std::fflush(stdout);
  return medians;
}

// One channel with 10, 1,000, 10,000 and 100,000 frames inside the pre-alarm time.
double GrowthWithPending(PluginHost& host, const Footage& footage, std::int64_t rounds) {
  constexpr int kIntervalMs = 100;
  std::vector<Waiting> layouts;
  for (const int frames : {10, 1000, 10'000, 100'000}) {
    layouts.push_back({.cameras = {.preAlarmSeconds = frames * kIntervalMs / 1000},
                       .intervalMs = kIntervalMs,
                       .fillRounds = frames + 2000,
                       .measureRounds = rounds});
  }
  const std::vector<double> costs = Measure(host, footage, layouts);
  return *std::max_element(costs.begin(), costs.end()) / costs.front();
}

// 16 channels with 60 s of pre-alarm and groups of 10 s against one channel with neither; 16
// channels without pre-alarm show what of it are the channels themselves.
double GrowthWithChannels(PluginHost& host, const Footage& footage, std::int64_t frames) {
  const auto layout = [&](int channels, int preAlarmSeconds) {
    return Waiting{.cameras = {.channels = channels, .preAlarmSeconds = preAlarmSeconds},
                   .intervalMs = 40,
                   .fillRounds = 2000,
                   .measureRounds = frames / channels};
  };
  const std::vector<double> costs =
      Measure(host, footage, {layout(1, 0), layout(16, 0), layout(16, 60)});
  return costs[2] / costs[0];
}

}  // namespace

void PendingFrames(const std::string& module) {
  PluginHost host(module);
  WarmFileSystem(1024);
  constexpr int kShortGroup = 5, kLongGroup = 250;

  const Footage large = Footage::Synthetic(64u << 20, kMeanFrame, kShortGroup);
  std::printf("  20 KB frames, payloads from memory:\n");
  Report("cost per frame, 10 to 100,000 pending, 20 KB frames",
         GrowthWithPending(host, large, 16'000), "x", Wanted::AtMost, 1.2);

  const Footage shared = Footage::Synthetic(kShortGroup * 1024, 1024, kShortGroup);
  std::printf("  1 KiB frames, all with the same few payloads:\n");
  Report("cost per frame, 10 to 100,000 pending, 1 KiB frames, payloads shared",
         GrowthWithPending(host, shared, 50'000), "x", Wanted::AtMost, 1.2);

  const Footage own = Footage::Synthetic(128u << 20, 1024, kShortGroup);
  std::printf("  1 KiB frames, each with a payload of its own:\n");
  Report("cost per frame, 10 to 100,000 pending, 1 KiB frames",
         GrowthWithPending(host, own, 50'000), "x", Wanted::AtMost, 1.2);

  const Footage longLarge = Footage::Synthetic(64u << 20, kMeanFrame, kLongGroup);
  std::printf("  20 KB frames, groups of 10 s:\n");
  Report("cost per frame, 16 channels with 60 s pre-alarm / 1 without, 20 KB",
         GrowthWithChannels(host, longLarge, 16'000), "x", Wanted::AtMost, 1.2);

  const Footage longShared = Footage::Synthetic(kLongGroup * 1024, 1024, kLongGroup);
  std::printf("  1 KiB frames, groups of 10 s:\n");
  Report("cost per frame, 16 channels with 60 s pre-alarm / 1 without, 1 KiB",
         GrowthWithChannels(host, longShared, 50'000), "x", Wanted::AtMost, 1.2);
}

}  // namespace bench
