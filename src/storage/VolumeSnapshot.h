#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "media/FileSystemBase.h"
#include "storage/NetworkTargets.h"

namespace qvsvr::kelvo {

// Where recordings lie, as of one moment. Immutable once published.
class VolumeSnapshot {
 public:
  VolumeSnapshot() = default;
  // `usable` are the drives in the order to list them.
  VolumeSnapshot(std::vector<std::string> usable, const NetworkTargets& network);

  // Both replace `list`; `filter` may be null. Archives come in the order of their ids; one without
  // a mounted path gives an empty volume name.
  void ListVolumes(std::vector<std::string>& list, std::uint32_t flags,
                   const qv::kelvo::ArchiveFilter* filter) const;
  void ListTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                   const qv::kelvo::ArchiveFilter* filter) const;

 private:
  std::vector<std::string> drives;
  std::vector<std::pair<std::int32_t, std::shared_ptr<qvArchiving::IScanner>>> archives;
};

// The current snapshot. Any thread; the lock is held for the copy of one pointer.
class PublishedSnapshot {
 public:
  void Publish(VolumeSnapshot snapshot);
  [[nodiscard]] std::shared_ptr<const VolumeSnapshot> Current() const;

 private:
  mutable std::mutex lock;
  std::shared_ptr<const VolumeSnapshot> current = std::make_shared<const VolumeSnapshot>();
};

}  // namespace qvsvr::kelvo
