#include "storage/NetworkTargets.h"

#include <algorithm>

#include "host/Log.h"
#include "platform/Files.h"
#include "tree/BucketFetch.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

namespace property = qvArchiving::property;

constexpr char kCacheGigabytes[] = "50";
constexpr char kCacheSeconds[] = "604800";

struct ArchiveConfig {
  int id = 0;
  qvArchiving::ScannerProperties properties;
};

// False for an element that lacks something or is switched off.
bool ReadArchive(const TiXmlElement& element, ArchiveConfig& archive) {
  const std::string mountPoint = ReadText(element, "MountPoint");
  const std::string address = ReadText(element, "Address");
  int type = 0;
  int enabled = 0;
  if (mountPoint.empty() || address.empty() || !ReadInt(element, "Type", type) ||
      !ReadInt(element, "Enabled", enabled) || enabled == 0 ||
      !ReadInt(element, "ID", archive.id)) {
    return false;
  }
  archive.properties = {{property::kFullyMountedPath, mountPoint},
                        {property::kFullName, address},
                        {property::kType, std::to_string(type)},
                        {property::kCacheEnable, "true"},
                        {property::kCacheSizeGigabytes, kCacheGigabytes},
                        {property::kCacheRetentionSeconds, kCacheSeconds}};
  const auto addIfThere = [&](const char* key, const char* attribute) {
    const char* text = element.Attribute(attribute);
    if (text != nullptr) archive.properties[key] = text;
  };
  addIfThere(property::kUserName, "Username");
  addIfThere(property::kPassword, "Password");
  return true;
}

// Null, with a line in the log, when the properties make no target.
std::shared_ptr<qvArchiving::IScanner> MakeTarget(const qvArchiving::ScannerProperties& properties,
                                                  qv::kelvo::Platform& platform) {
  try {
    return qvArchiving::CreateScanner(properties, {}, platform);
  } catch (...) {
    // Not all that is thrown is an exception, and its text might quote what is secret.
    LogPrintf(LogError, "Error creating target interface");
    return nullptr;
  }
}

}  // namespace

void NetworkTargets::ReplaceArchives(const TiXmlElement& element, qv::kelvo::Platform& platform) {
  // Searches that still use the former targets keep them, so that none is destroyed here with a
  // transfer under way.
  const auto former = std::move(archives);  // a cache whose target comes again is kept
  archives.clear();
  for (const TiXmlElement& child : Children(element, "Archive")) {
    ArchiveConfig archive;
    if (!ReadArchive(child, archive)) continue;
    auto target = MakeTarget(archive.properties, platform);
    if (target != nullptr) archives[archive.id] = std::move(target);
  }
}

void NetworkTargets::RefuseBucketsOn(const std::map<std::string, DriveRecord>& drives) {
  for (auto archive = archives.begin(); archive != archives.end();) {
    std::string root;
    const auto drive = qv::kelvo::IsBucket(*archive->second, root)
                           ? std::ranges::find_if(drives,
                                                  [&root](const auto& entry) {
                                                    return qv::kelvo::Overlap(root, entry.first);
                                                  })
                           : drives.end();
    if (drive == drives.end()) {
      ++archive;
      continue;
    }
    LogPrintf(LogError, "Archive %d refused: its mount point %s shares a directory with drive %s",
              archive->first, root.c_str(), drive->first.c_str());
    archive = archives.erase(archive);
  }
}

void NetworkTargets::ApplyStatus(const TiXmlElement& element) {
  for (const TiXmlElement& archive : Children(element, "Archive")) {
    int id = 0;
    int status = 0;
    if (!ReadInt(archive, "ID", id) || !ReadInt(archive, "Status", status)) continue;
    if (status >= 0) {
      accessibleArchives.insert(id);
    } else {
      accessibleArchives.erase(id);
    }
  }
  for (const TiXmlElement& portal : Children(element, "Portal")) {
    for (const TiXmlElement& target : Children(portal, "Target")) ApplyTargetStatus(target);
  }
}

void NetworkTargets::ApplyTargetStatus(const TiXmlElement& target) {
  int id = 0;
  int status = 0;
  // A positive status is neither of the two.
  if (!ReadInt(target, "ID", id) || !ReadInt(target, "Status", status) || status > 0) return;
  const bool writable = status == 0;
  const bool changed =
      writable ? writableTargets.insert(id).second : writableTargets.erase(id) != 0;
  if (!changed) return;
  for (const auto& [name, number] : iscsiDrives) {
    if (number != id) continue;
    LogPrintf(LogInfo, "Drive %s (ID %d) %s via iSCSI.", name.c_str(), number,
              writable ? "now writable" : "inaccessible");
  }
}

NetworkDrives ReadNetworkDrives(const TiXmlElement& element) {
  NetworkDrives drives;
  for (const TiXmlElement& portal : Children(element, "Portal")) {
    for (const TiXmlElement& target : Children(portal, "Target")) {
      int enabled = 0;
      int id = 0;
      if (!ReadInt(target, "Enabled", enabled) || enabled == 0 || !ReadInt(target, "ID", id)) {
        continue;
      }
      for (const TiXmlElement& partition : Children(target, "Partition")) {
        const std::string mountPoint = qv::kelvo::WithSeparator(ReadText(partition, "MountPoint"));
        // The value of Enabled is the number that states refer to; the ID only has to be there.
        if (!mountPoint.empty()) drives[mountPoint] = enabled;
      }
    }
  }
  return drives;
}

}  // namespace qvsvr::kelvo
