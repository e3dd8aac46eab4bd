#include "storage/VolumeSnapshot.h"

#include "platform/Platform.h"

namespace qvsvr::kelvo {
namespace {

bool Passes(const qv::kelvo::ArchiveFilter* filter, std::int32_t id) {
  if (filter == nullptr) return true;
  const auto entry = filter->find(id);
  return entry == filter->end() || entry->second;
}

std::string MountedPath(const qvArchiving::IScanner& archive) {
  namespace key = qvArchiving::property;
  std::string path = qvArchiving::PropertyOr(archive.Properties(), key::kFullyMountedPath);
  if (!path.empty() && !qv::kelvo::IsPathSeparator(path.back())) {
    path += qv::kelvo::kPathSeparator;
  }
  return path;
}

}  // namespace

VolumeSnapshot::VolumeSnapshot(std::vector<std::string> usable, const NetworkTargets& network)
    : drives(std::move(usable)) {
  for (const auto& [id, archive] : network.archives) {
    if (archive != nullptr && network.accessibleArchives.contains(id)) {
      archives.emplace_back(id, archive);
    }
  }
}

void VolumeSnapshot::ListVolumes(std::vector<std::string>& list, std::uint32_t flags,
                                 const qv::kelvo::ArchiveFilter* filter) const {
  list.clear();
  if ((flags & qv::kelvo::kVolumesLocal) != 0) list = drives;
  if ((flags & qv::kelvo::kVolumesArchive) == 0) return;
  for (const auto& [id, archive] : archives) {
    if (Passes(filter, id)) list.push_back(MountedPath(*archive));
  }
}

void VolumeSnapshot::ListTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                                 const qv::kelvo::ArchiveFilter* filter) const {
  list.clear();
  if ((flags & qv::kelvo::kVolumesArchive) == 0) return;
  for (const auto& [id, archive] : archives) {
    if (Passes(filter, id)) list.push_back(archive);
  }
}

void PublishedSnapshot::Publish(VolumeSnapshot snapshot) {
  // The one that is replaced is destroyed outside the lock.
  auto next = std::make_shared<const VolumeSnapshot>(std::move(snapshot));
  const std::lock_guard guard(lock);
  current.swap(next);
}

std::shared_ptr<const VolumeSnapshot> PublishedSnapshot::Current() const {
  const std::lock_guard guard(lock);
  return current;
}

}  // namespace qvsvr::kelvo
