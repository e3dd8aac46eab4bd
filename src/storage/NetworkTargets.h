#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "archiving/IScanner.h"
#include "host/Xml.h"
#include "platform/Platform.h"
#include "storage/DriveTable.h"

namespace qvsvr::kelvo {

// Drives that iSCSI mounts: mount point, ended by the separator, to the number that names the
// target in its status.
using NetworkDrives = std::map<std::string, std::int32_t>;

// Storage beyond the local drives: network drives, which are recorded on like others, and archive
// targets, which are searched. Searches share the targets, so that one which a message replaces
// lives until the last of them has let go of it. Belongs to VolumeTable; worker thread only.
struct NetworkTargets {
  NetworkDrives iscsiDrives;
  std::set<std::int32_t> writableTargets;  // by the numbers above
  std::map<std::int32_t, std::shared_ptr<qvArchiving::IScanner>> archives;
  // By the keys of `archives`; outlives their replacement.
  std::set<std::int32_t> accessibleArchives;

  // False only for a network drive whose target isn't writable.
  [[nodiscard]] bool IsVolumeWritable(const std::string& name) const {
    const auto drive = iscsiDrives.find(name);
    return drive == iscsiDrives.end() || writableTargets.contains(drive->second);
  }

  // Replaces the archive targets by those of an Archives element. One that can't be made is logged
  // and absent. A bucket's target lists its local copies here, unless the former one had the same
  // mounted path, whose list goes on. The platform must outlive the targets.
  void ReplaceArchives(const TiXmlElement& element, qv::kelvo::Platform& platform);

  // Takes over the states that an Archives element of an action reports.
  void ApplyStatus(const TiXmlElement& element);

  // Refuses buckets whose local copies would lie on, above or below one of the drives: the cache's
  // limits would take recordings for copies.
  void RefuseBucketsOn(const std::map<std::string, DriveRecord>& drives);

 private:
  void ApplyTargetStatus(const TiXmlElement& target);
};

// The network drives that an Archives element of a configuration names.
[[nodiscard]] NetworkDrives ReadNetworkDrives(const TiXmlElement& element);

}  // namespace qvsvr::kelvo
