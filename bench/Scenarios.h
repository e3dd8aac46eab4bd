#pragma once

#include <string>

#include "bench/Footage.h"

namespace bench {

// Each measures one thing, prints what it sees and reports its figures. `module` is the plug-in's
// absolute path.
void Recording(const std::string& module);
void SmallFrames(const std::string& module);
void AgainstFfmpeg(const std::string& module);
void PendingFrames(const std::string& module);
void WriteCall(const std::string& module);
void RealTime(const std::string& module);
void IdleCameras(const std::string& module);
void Storage(const std::string& module);
void StorageMonth(const std::string& module);
void Scale(const std::string& module);
void Listing(const std::string& module);
void Playback(const std::string& module);
void SlowDisk(const std::string& module);
void SearchMemory(const std::string& module);
void Bucket(const std::string& module);

// Records `rounds` frames of each channel for a tracer to look at, and prints how many were
// written.
void Traced(const std::string& module, int rounds, int cameras, int channels);

inline constexpr int kRuns = 5;  // of everything that is compared; medians count
inline constexpr std::uint32_t kMeanFrame = 20'000;
inline constexpr int kGroup = 25;

// More than the processor's caches hold, so that payloads come from memory as those of a busy host.
[[nodiscard]] inline Footage CameraFootage() {
  return Footage::Synthetic(64u << 20, kMeanFrame, kGroup);
}

}  // namespace bench
