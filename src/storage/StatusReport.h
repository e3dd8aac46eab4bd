#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "host/Xml.h"
#include "storage/DriveTable.h"

namespace qvsvr::kelvo {

// What the host is told of the drives. A fault is told when it first shows or changes, and then
// not again until something else was told. Worker thread only.
class StatusReport {
 public:
  // What a full report measures; the callbacks are called during Build only.
  struct Measures {
    std::function<bool(const std::string&, std::uint32_t& totalGB, std::uint32_t& freeGB)> space;
    std::function<bool(const std::string&)> readWriteTest;
    std::int64_t oldest = -1;  // of the recordings that may go, seconds since 1970
    double recordingMbps = 0;
    std::int32_t wantedAge = 0;  // of the oldest content, seconds
    // When recordings were last deleted for room, and how often of late.
    std::int64_t lastRoomMakingTime = std::numeric_limits<std::int64_t>::max();
    std::uint64_t roomMakingCount = 0;
  };

  // The Storage element of a report. Without `measures` a short one, which measures nothing.
  // Updates the alarm state of the drives and drops the entries of `absentDrives` that are told.
  [[nodiscard]] TiXmlElement Build(DriveTable& table, bool recordingNotPossible,
                                   std::int64_t nowSeconds, const Measures* measures);

  // True when the last full report ended the alarm over the age of the content: what is known of
  // room-making is out of date then.
  [[nodiscard]] bool ContentAgeSettled() const { return contentAgeSettled; }

 private:
  void AddContentAge(const Measures& measures, std::int64_t nowSeconds, TiXmlElement& storage);

  int contentAgeAlarm = -1;  // as last told; -1 before
  bool contentAgeSettled = false;
};

// Keeps the least and greatest time that a search for the oldest recording took.
class ScanTimes {
 public:
  // Logs one line at level 0.
  void Note(std::uint64_t microseconds);

 private:
  std::uint64_t oldestScanMinMicros = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t oldestScanMaxMicros = 0;
};

}  // namespace qvsvr::kelvo
