#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "archiving/IScanner.h"

namespace qvsvr::kelvo {

// Storage beyond the local drives: network drives and archive targets. Worker thread only.
struct NetworkTargets {
  std::map<std::string, std::int32_t> iscsiDrives;  // mount point to the target's id
  std::set<std::int32_t> writableTargets;           // of the ids above
  std::map<std::int32_t, std::shared_ptr<qvArchiving::IScanner>> archives;
  std::set<std::int32_t> accessibleArchives;  // of the ids of `archives`

  // False only for a network drive whose target isn't writable.
  [[nodiscard]] bool IsVolumeWritable(const std::string& name) const {
    const auto drive = iscsiDrives.find(name);
    return drive == iscsiDrives.end() || writableTargets.contains(drive->second);
  }
};

}  // namespace qvsvr::kelvo
