#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "archiving/IScanner.h"
#include "platform/Platform.h"

namespace qv::kelvo {

inline constexpr std::uint32_t kVolumesLocal = 1;    // local drives
inline constexpr std::uint32_t kVolumesArchive = 2;  // archive targets

// Which archives take part, by id. An id that isn't in the map takes part.
using ArchiveFilter = std::map<std::int32_t, bool>;

using TargetList = std::vector<std::shared_ptr<qvArchiving::IScanner>>;

// Knows where recordings lie.
class FileSystemBase {
 public:
  explicit FileSystemBase(Platform& system) : platform(system) {}
  virtual ~FileSystemBase() = default;

  // Replaces `list` by volume roots, each ending in the separator. The base version gives the
  // machine's fixed drives for kVolumesLocal. `filter` may be null.
  virtual void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                          const ArchiveFilter* filter);

  // Replaces `list` by archive targets; the base version knows none. `filter` may be null.
  virtual void GetTargets(TargetList& list, std::uint32_t flags, const ArchiveFilter* filter);

 protected:
  Platform& platform;
};

// The machine's fixed drives and the directory of the operating system. Failures are logged; the
// results hold what was gathered.
void ScanLocalDrives(Platform& platform, std::vector<std::string>& list,
                     std::string& systemDirectory);

// Removes each name whose file system was already named earlier in the list, with a warning. Lists
// of fewer than two names, and names that can't be examined, are left alone.
void RemoveDuplicateDevices(Drives& drives, std::vector<std::string>& list);

}  // namespace qv::kelvo
