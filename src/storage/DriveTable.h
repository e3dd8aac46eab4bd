#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qvsvr::kelvo {

inline constexpr std::uint32_t kAlarmSpaceQuery = 4;  // the space query failed
inline constexpr std::uint32_t kAlarmReadWrite = 8;   // the read-write test failed

struct DriveRecord {
  bool disabled = false;
  bool system = false;              // holds the operating system's directory
  std::int32_t reservePercent = 0;  // 0 to 100: share of the size that stays unrecorded
  std::uint32_t alarmBits = 0;      // kAlarm...
  std::int32_t reportedAlarm = -1;  // `alarmBits` when last reported
};

// The drives by name: a root path with its trailing separator, or a mount point as a message named
// it. Worker thread only.
struct DriveTable {
  std::map<std::string, DriveRecord> drives;
  // `Enabled` values told for drives that aren't in the table.
  std::map<std::string, bool> absentDrives;

  // Replaces the drives. One whose name occurs in `systemDirectory` keeps a tenth of its size free,
  // and starts disabled when it isn't the only drive.
  void Fill(const std::vector<std::string>& names, const std::string& systemDirectory);
};

}  // namespace qvsvr::kelvo
