#include "storage/VolumeTable.h"

#include <exception>

#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

// Only what the filter switches off is left out.
bool Passes(const qv::kelvo::ArchiveFilter* filter, std::int32_t id) {
  if (filter == nullptr) return true;
  const auto entry = filter->find(id);
  return entry == filter->end() || entry->second;
}

std::string MountedPath(const qvArchiving::IScanner& archive) {
  namespace key = qvArchiving::property;
  return qv::kelvo::WithSeparator(
      qvArchiving::PropertyOr(archive.Properties(), key::kFullyMountedPath));
}

}  // namespace

std::vector<std::string> VolumeTable::ListDrives(std::uint32_t alarmMask) const {
  std::vector<std::string> names;
  for (const auto& [name, record] : drives.drives) {
    if (!record.disabled && (record.alarmBits & alarmMask) == 0 && network.IsVolumeWritable(name)) {
      names.push_back(name);
    }
  }
  return names;
}

// One drive may be mounted below another: the nearer one has the path.
std::string VolumeTable::DriveOf(const std::string& path) const {
  std::string longest;
  for (const auto& [name, record] : drives.drives) {
    if (path.starts_with(name) && name.size() > longest.size()) longest = name;
  }
  return longest;
}

void VolumeTable::ListVolumes(std::vector<std::string>& list, std::uint32_t flags,
                              const qv::kelvo::ArchiveFilter* filter) const {
  const auto snapshot = Current();
  list.clear();
  if ((flags & qv::kelvo::kVolumesLocal) != 0) list = snapshot->usable;
  if ((flags & qv::kelvo::kVolumesArchive) == 0) return;
  for (const auto& [id, archive] : snapshot->archives) {
    if (Passes(filter, id)) list.push_back(MountedPath(*archive));
  }
}

void VolumeTable::ListTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                              const qv::kelvo::ArchiveFilter* filter) const {
  const auto snapshot = Current();
  list.clear();
  if ((flags & qv::kelvo::kVolumesArchive) == 0) return;
  for (const auto& [id, archive] : snapshot->archives) {
    if (Passes(filter, id)) list.push_back(archive);
  }
}

void VolumeTable::Publish() noexcept {
  try {
    network.RefuseBucketsOn(drives.drives);
    auto next = std::make_shared<Snapshot>();
    next->usable = ListUsable();
    for (const auto& [id, archive] : network.archives) {
      if (archive != nullptr && network.accessibleArchives.contains(id)) {
        next->archives.emplace_back(id, archive);
      }
    }
    // The one that is replaced is destroyed outside the lock.
    std::shared_ptr<const Snapshot> published = std::move(next);
    const std::lock_guard guard(lock);
    current.swap(published);
  } catch (const std::exception& error) {
    LogPrintf(LogError, "The list of volumes is out of date: %s", error.what());
  }
}

std::shared_ptr<const VolumeTable::Snapshot> VolumeTable::Current() const {
  const std::lock_guard guard(lock);
  return current;
}

}  // namespace qvsvr::kelvo
