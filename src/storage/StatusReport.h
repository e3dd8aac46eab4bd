#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <string>

#include "host/Xml.h"
#include "platform/Platform.h"
#include "storage/DriveTable.h"

namespace qvsvr::kelvo {

// Finds out whether a drive can be written and read back. One small file, since it runs on the
// worker: what it is to find is a drive that is read-only, unplugged or refuses, not one that is
// slow. Worker thread only.
class ReadWriteTest {
 public:
  // Borrows the platform for its life.
  explicit ReadWriteTest(const qv::kelvo::Platform& system) : platform(system) {}

  // Writes a file "test.bin" into the directory "kelvo" at the drive's root, which must exist, and
  // compares what is read back. False, with the cause in the log, when anything fails; a directory
  // with something else in it is a failure. What another program holds is waited for, some seconds
  // at most. The file stays until the next test.
  bool Run(const std::string& driveName);

 private:
  [[nodiscard]] bool Prepare(const std::string& directory, const std::string& path);

  const qv::kelvo::Platform& platform;
  // Another one each time, so that the file of an earlier test doesn't pass.
  std::uint8_t testPattern = 0;
};

// What the host is told of the drives. A fault is told when it first shows or changes, and then not
// again until something else was told; that all is well is told each time. Beside the drives it
// tells how far back the recordings reach, and raises an alarm when they were deleted for room
// within the last hour and no longer reach as far as is wanted. What was told of a drive last
// stands in its record. Part of CFileSystem; worker thread only.
class StatusReport {
 public:
  // What a full report tells beside the drives.
  struct Measures {
    std::int64_t oldest = -1;  // of the recordings that may go, seconds since 1970
    double recordingMbps = 0;
    std::int32_t wantedAge = 0;  // of the oldest content, seconds
    // When recordings were last deleted for room, and how often of late.
    std::int64_t lastRoomMakingTime = std::numeric_limits<std::int64_t>::max();
    std::uint64_t roomMakingCount = 0;
  };

  // Measures the drives and updates their alarm bits. A drive that is disabled isn't tested.
  struct DriveTests {
    std::function<bool(const std::string&, std::uint32_t& totalGB, std::uint32_t& freeGB)> space;
    std::function<bool(const std::string&)> readWrite;
  };
  void MeasureDrives(DriveTable& table, const DriveTests& tests);

  // The Storage element of a report; without `measures` a short one. Notes what is told of the
  // drives and drops the entries of `absentDrives` that are told.
  [[nodiscard]] TiXmlElement Build(DriveTable& table, bool recordingNotPossible,
                                   std::int64_t nowSeconds, const Measures* measures);

  // True when the last full report ended the alarm over the age of the content: what is known of
  // room-making is out of date then.
  [[nodiscard]] bool ContentAgeSettled() const { return contentAgeSettled; }

 private:
  void AddContentAge(const Measures& measures, std::int64_t nowSeconds, TiXmlElement& storage);

  struct Size {
    std::uint32_t totalGB = 0;
    std::uint32_t freeGB = 0;
  };
  std::map<std::string, Size> sizes;  // of the drives that could be measured last
  int contentAgeAlarm = -1;           // as last told; -1 before
  bool contentAgeSettled = false;
};

// Keeps the least and greatest time that a search for the oldest recording took, over all its
// slices.
class ScanTimes {
 public:
  // Logs one line at level 0.
  void Note(std::uint64_t microseconds);

 private:
  std::uint64_t oldestScanMinMicros = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t oldestScanMaxMicros = 0;
};

}  // namespace qvsvr::kelvo
