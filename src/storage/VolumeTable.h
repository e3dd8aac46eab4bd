#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "storage/DriveTable.h"
#include "storage/NetworkTargets.h"
#include "tree/FileSystemBase.h"

namespace qvsvr::kelvo {

// Where recordings lie: the drives and the archive targets. They belong to the worker; what other
// threads see of them is an immutable copy that follows each change by itself: a search keeps the
// copy that it began with, and no change waits for a search. The lock is held for exchanging a
// pointer, never over a look at the disk. Part of CFileSystem.
class VolumeTable {
 public:
  [[nodiscard]] const DriveTable& Drives() const { return drives; }
  [[nodiscard]] const NetworkTargets& Network() const { return network; }

  // The way to change them: at its end others see what was changed. Worker thread only.
  class Change {
   public:
    explicit Change(VolumeTable& changed)
        : drives(changed.drives), network(changed.network), table(changed) {}
    ~Change() { table.Publish(); }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    // Inserts a drive; one that is in the table stays as it is. Returns whether it is new.
    bool AddDrive(const std::string& name) { return drives.drives.try_emplace(name).second; }

    DriveTable& drives;
    NetworkTargets& network;

   private:
    VolumeTable& table;
  };

  // Names of the drives that are enabled and writable; and of those without a fault. Table order.
  [[nodiscard]] std::vector<std::string> ListUsable() const { return ListDrives(0); }
  [[nodiscard]] std::vector<std::string> ListRecordable() const { return ListDrives(~0u); }

  // The name of the drive that `path` lies on; empty when none of the table does.
  [[nodiscard]] std::string DriveOf(const std::string& path) const;

  // Both replace `list`; `filter` may be null. Archives come in the order of their ids; one without
  // a mounted path gives an empty volume name. Any thread.
  void ListVolumes(std::vector<std::string>& list, std::uint32_t flags,
                   const qv::kelvo::ArchiveFilter* filter) const;
  void ListTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                   const qv::kelvo::ArchiveFilter* filter) const;

 private:
  struct Snapshot {
    std::vector<std::string> usable;
    std::vector<std::pair<std::int32_t, std::shared_ptr<qvArchiving::IScanner>>> archives;
  };

  [[nodiscard]] std::vector<std::string> ListDrives(std::uint32_t alarmMask) const;
  // When memory runs out, others go on with what they saw before.
  void Publish() noexcept;
  [[nodiscard]] std::shared_ptr<const Snapshot> Current() const;

  DriveTable drives;
  NetworkTargets network;
  mutable std::mutex lock;  // held for the copy of the pointer
  std::shared_ptr<const Snapshot> current = std::make_shared<const Snapshot>();
};

}  // namespace qvsvr::kelvo
