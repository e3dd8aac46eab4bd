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

  // To find the oldest hour takes some listings on each volume: makes one of them ahead of the
  // first Next. False when there is none left to make.
  [[nodiscard]] bool ListAhead();

 private:
  // On the way to a volume's oldest hour: a directory of years, months, days or hours with those
  // that weren't entered yet, the oldest at the end.
  struct Level {
    std::string directory;
    std::vector<std::string> names;
  };
  void Enter(std::string directory);
  [[nodiscard]] bool Exists(UtcMs time, TreeLevel level);
  void FindDirectories(UtcMs time);

  Directories& listings;
  const std::vector<std::string> volumes;
  std::vector<Level> way;        // into the volume that is being looked at
  std::size_t lookedAt = 0;      // volumes whose oldest hour is known
  std::optional<UtcMs> oldest;   // of those
  std::optional<UtcMs> current;  // the hour that was given last
  std::vector<Directory> found;  // of the hour that was asked for last
  // The year, month and day known to exist end there: they aren't asked for again at each hour.
  std::array<UtcMs, 3> knownUntil{};
};

}  // namespace qv::kelvo
