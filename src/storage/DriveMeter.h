#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/Drives.h"

namespace qvsvr::kelvo {

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
