#pragma once

#include <cstdint>
#include <vector>

#include "bench/Footage.h"
#include "bench/Host.h"

namespace bench {

// A stretch of frames: `rounds` rounds from `firstRound` on, in each of which every channel gives
// one frame. Cameras start one after the other within the first group, so that their I frames
// don't come together.
struct Stretch {
  const Footage& footage;
  int cameras = 1;
  int channels = 1;  // of each camera
  std::int64_t firstRound = 0;
  std::int64_t rounds = 0;
  int intervalMs = 40;  // between the capture times of two rounds
  std::int64_t maxOutstanding = 4000;
};

// Calls `use(camera, channel, unit, round)` for each frame of the stretch.
template <typename Use>
void ForEachFrame(const Stretch& stretch, Use use) {
  const int sources = stretch.cameras * stretch.channels;
  for (std::int64_t round = stretch.firstRound; round < stretch.firstRound + stretch.rounds;
       ++round) {
    for (int source = 0; source < sources; ++source) {
      const std::int64_t index = round - source * stretch.footage.Group() / sources;
      if (index < 0) continue;
      use(source % stretch.cameras, source / stretch.cameras, stretch.footage.At(source, index),
          round);
    }
  }
}

// Frames of the stretch.
[[nodiscard]] std::int64_t FrameCount(const Stretch& stretch);

// Fills the block of one frame; the payload stays the footage's own.
void FillBlock(KelvoWriteBlock& block, int camera, int channel, const Unit& unit,
               std::int64_t captureMs);

// Gives the whole stretch to `write` as fast as it is taken. Capture times begin at `startMs`.
void Feed(const Stretch& stretch, KelvoExport write, std::int64_t startMs);

// Wall clock in milliseconds since 1970.
[[nodiscard]] std::int64_t NowMs();

// What a run left on disk: frames by the index heads, and the bytes of both files.
struct Recorded {
  std::int64_t frames = 0;
  std::uint64_t payloadBytes = 0;  // of those frames; only for cameras of one channel
  std::uint64_t fileBytes = 0;
  int files = 0;
};
[[nodiscard]] Recorded CountRecorded(const Footage& footage);

// CPU time of one recording from the first Write to the closed files.
struct RecordingCost {
  std::int64_t cpuNs = 0;
  std::int64_t wallNs = 0;
  Recorded recorded;
};
[[nodiscard]] RecordingCost RecordStretch(PluginHost& host, const Stretch& stretch);

// CPU time of giving the stretch to nobody.
[[nodiscard]] std::int64_t NullCostNs(const Stretch& stretch);

}  // namespace bench
