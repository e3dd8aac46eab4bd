#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Directory.h"
#include "tree/RecordPath.h"

namespace qv::kelvo {

// Whether any place has a directory for that local year, month, day or hour.
using LevelTest = std::function<bool(UtcMs time, TreeLevel level)>;

// Moves `time`, the start of a local hour, on to the next hour that exists, itself included. A
// year, month or day that is missing costs one question. False when there is none before `end`.
[[nodiscard]] bool FindNextHour(UtcMs& time, UtcMs end, const LevelTest& exists);

// Goes through the hours of some volumes in the order of time, from the oldest one on: how the
// worker looks for what may go, and how the sweeper sees everything once. A directory whose hour
// comes twice is met once, at the first of both. Directories may come and go meanwhile. One thread
// at a time.
class HourCursor {
 public:
  // Borrows `directories` for its life; `roots` are the volumes' roots.
  HourCursor(Directories& directories, std::vector<std::string> roots);

  struct Directory {
    std::string path;        // with a separator at its end
    std::size_t volume = 0;  // its place in `roots`
  };
  struct Hour {
    UtcMs start = 0;
    std::vector<Directory> directories;  // at least one, in the order of the volumes
  };
  // The oldest hour, wherever it lies, at the first call; then the next one before `end`. Nothing
  // when there is none, which a later call may change.
  [[nodiscard]] std::optional<Hour> Next(UtcMs end);

 private:
  [[nodiscard]] std::optional<UtcMs> OldestHour() const;
  [[nodiscard]] bool Exists(UtcMs time, TreeLevel level);
  void FindDirectories(UtcMs time);

  Directories& listings;
  const std::vector<std::string> volumes;
  std::optional<UtcMs> current;  // the hour that was given last
  std::vector<Directory> found;  // of the hour that was asked for last
  // The year, month and day known to exist end there: they aren't asked for again at each hour.
  std::array<UtcMs, 3> knownUntil{};
};

}  // namespace qv::kelvo
