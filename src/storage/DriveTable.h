#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/Drives.h"

namespace qvsvr::kelvo {

inline constexpr std::uint32_t kAlarmSpaceQuery = 4;  // the space query failed
inline constexpr std::uint32_t kAlarmReadWrite = 8;   // the read-write test failed

// One drive. A drive that is disabled isn't recorded on, searched, swept or tested; its recordings
// stay.
struct DriveRecord {
  bool disabled = false;
  bool system = false;              // holds the operating system's directory
  std::int32_t reservePercent = 0;  // 0 to 100: share of the size that stays unrecorded
  std::uint32_t alarmBits = 0;      // kAlarm...
  std::int32_t reportedAlarm = -1;  // `alarmBits` when last reported
};

// The drives by name: a root path with its trailing separator, or a mount point as a message named
// it. The name is what settings, messages and recordings refer to; it is never resolved. Belongs to
// VolumeTable, through which alone it is changed; worker thread only.
struct DriveTable {
  std::map<std::string, DriveRecord> drives;
  // `Enabled` values told for drives that aren't in the table.
  std::map<std::string, bool> absentDrives;

  // The drive that is told by this name: a name of the system that isn't UTF-8 is told as UTF-8.
  [[nodiscard]] std::map<std::string, DriveRecord>::iterator Told(const std::string& name);

  // Replaces the drives. One whose name occurs in `systemDirectory` keeps a tenth of its size free,
  // and starts disabled when it isn't the only drive.
  void Fill(const std::vector<std::string>& names, const std::string& systemDirectory);
};

// GB that may be recorded on a drive: what is free, less what is reserved on it and the share that
// stays free. Negative when that share is in use.
[[nodiscard]] std::int64_t UsableGB(std::uint32_t totalGB, std::uint32_t freeGB,
                                    std::int64_t reservedGB, std::int32_t reservePercent);

// Measures one drive: its usable GB.
using MeasureDrive = std::function<std::int64_t(const std::string&, const DriveRecord&)>;

// The drive with the most usable space among those with at least `desiredGB`, the earlier on a tie;
// empty when there is none.
[[nodiscard]] std::string ChooseVolume(const std::map<std::string, DriveRecord>& drives,
                                       std::int64_t desiredGB, const MeasureDrive& measure);

// Measures the space of drives, and notices when what is found at a drive's path isn't the drive:
// a drive that was seen as a volume mounted there has failed as long as the directory below the
// mount point is all there is. Worker thread only.
class DriveMeter {
 public:
  // Borrows `drives` for its life.
  explicit DriveMeter(qv::kelvo::Drives& systemDrives) : drives(systemDrives) {}

  // Whole GiB, rounded down. False when the drive can't be measured, with a line in the log when
  // that, or its reason, is new.
  [[nodiscard]] bool Measure(const std::string& name, std::uint32_t& totalGB,
                             std::uint32_t& freeGB);

 private:
  struct Seen {
    bool mounted = false;
    std::string failure;  // as last told; empty while all is well
  };
  [[nodiscard]] bool IsMounted(const std::string& name);

  qv::kelvo::Drives& drives;
  std::map<std::string, Seen> seen;
};

}  // namespace qvsvr::kelvo
