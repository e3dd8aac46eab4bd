#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hostkit/SearchXml.h"
#include "nvrhost/StoredCameras.h"

namespace nvrhost {

// A stretch of one camera's video or audio with the same flags all along.
struct Stretch {
  std::size_t camera = 0;  // in the given cameras
  bool audio = false;
  std::int64_t start = 0, end = 0;  // seconds since 1970 UTC, both with footage
  unsigned flags = 0;
};

// The rows of a listing, by camera and time; what continues within two seconds is one stretch.
[[nodiscard]] std::vector<Stretch> StretchesOf(const hostkit::SearchResults& results,
                                               const std::vector<StoredCamera>& cameras);

// To standard output: a line for each stretch; a picture of the range with a row for each camera;
// or everything for scripts.
void PrintStretches(const std::vector<Stretch>& stretches,
                    const std::vector<StoredCamera>& cameras);
void PrintTimeline(const std::vector<Stretch>& stretches, const std::vector<StoredCamera>& cameras,
                   std::int64_t from, std::int64_t to, std::size_t columns);
void PrintJson(const std::vector<Stretch>& stretches, const std::vector<StoredCamera>& cameras);

}  // namespace nvrhost
