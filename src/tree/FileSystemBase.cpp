#include "tree/FileSystemBase.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <set>

#include "host/Log.h"
#include "platform/Files.h"
#include "tree/LocalTime.h"

namespace qv::kelvo {

using qvsvr::kelvo::LogError;
using qvsvr::kelvo::LogPrintf;
using qvsvr::kelvo::LogTrace;
using qvsvr::kelvo::LogWarning;

namespace {

void TellAboutDrives(const std::vector<std::string>& list, const std::string& place) {
  if (list.empty()) {
    LogPrintf(LogWarning, "No fixed drive found in %s",
              place.empty() ? "the system" : place.c_str());
  }
  for (const std::string& drive : list) {
    if (drive.find('-') == std::string::npos) continue;
    LogPrintf(LogWarning,
              "Drive %s has a '-' in its path: the first '-' of a recording's path is read as the "
              "start of the stream id, so its bookmarked recordings will be measured wrongly",
              drive.c_str());
  }
}

}  // namespace

void FileSystemBase::GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                                const ArchiveFilter*) {
  list.clear();
  if ((flags & kVolumesLocal) == 0) return;
  std::string systemDirectory;
  ScanLocalDrives(platform, list, systemDirectory);
}

void FileSystemBase::GetTargets(TargetList& list, std::uint32_t, const ArchiveFilter*) {
  list.clear();
}

std::int64_t FileSystemBase::SlackSeconds() const {
  constexpr std::int64_t kGroupSeconds = 60;  // a frame waits for the end of its group, too
  return std::max(kFileSeconds, longestPreAlarm + kGroupSeconds);
}

bool ScanLocalDrives(Platform& platform, std::vector<std::string>& list,
                     std::string& systemDirectory) {
  list.clear();
  systemDirectory.clear();
  const int error = platform.drives.FixedDrives(list);
  if (error != 0) {
    LogPrintf(LogError, "get logical drive strings error %u", static_cast<unsigned>(error));
  }
  TellAboutDrives(list, platform.drives.SearchedPlace());
  if (const int failed = platform.drives.SystemDirectory(systemDirectory); failed != 0) {
    LogPrintf(LogError, "get windows directory error %u", static_cast<unsigned>(failed));
  }
  return error == 0;
}

void RemoveDuplicateDevices(Drives& drives, std::vector<std::string>& list) {
  if (list.size() < 2) return;
  std::set<std::uint64_t> seen;
  std::erase_if(list, [&](const std::string& drive) {
    std::uint64_t device = 0;
    if (drives.DeviceNumber(drive, device) != 0 || seen.insert(device).second) return false;
    LogPrintf(LogWarning, "Drive %s removed because device 0x%" PRIx64 " has already been seen",
              drive.c_str(), device);
    return true;
  });
}

bool FileSystemBase::LevelExists(UtcMs time, TreeLevel level) {
  std::vector<std::string> roots;
  GetVolumes(roots, kVolumesLocal | kVolumesArchive, nullptr);
  for (const std::string& root : roots) {
    if (root.empty()) continue;  // an archive without a place of its own
    const std::string directory = TreeDirectory(root, time, level);
    LogPrintf(LogTrace, "dir exists %s", directory.c_str());
    if (IsDirectory(directory)) return true;
  }
  TargetList targets;
  GetTargets(targets, kVolumesLocal | kVolumesArchive, nullptr);
  for (const auto& target : targets) {
    std::string root;
    if (!IsBucket(*target, root)) continue;
    const std::string directory = TreeDirectory(root, time, level);
    LogPrintf(LogTrace, "cloud dir exists %s", directory.c_str());
    if (buckets.TestLevel(target, root, time, level)) return true;
  }
  return false;
}

bool FileSystemBase::FindNextHour(UtcMs& time, UtcMs end) {
  const bool found = qv::kelvo::FindNextHour(
      time, end, [this](UtcMs at, TreeLevel level) { return LevelExists(at, level); });
  return found && !buckets.GaveUp();
}

void FileSystemBase::ListHour(UtcMs time, std::span<const RequestKey> requested,
                              std::vector<std::string>& volumes, HourListing& listing) {
  listing.clear();
  for (const std::uint32_t kind : {kVolumesLocal, kVolumesArchive}) {
    if (kind == kVolumesArchive) {
      TargetList targets;
      GetTargets(targets, kVolumesArchive, nullptr);
      buckets.FetchHour(targets, time, requested);
    }
    GetVolumes(volumes, kind, nullptr);
    std::vector<std::string> directories;
    directories.reserve(volumes.size());
    for (const std::string& volume : volumes) {
      directories.push_back(volume.empty() ? std::string() : HourDirectory(volume, time));
    }
    // An archive's directory may be on a file system that doesn't tell of every change.
    listing = ListMediaFiles(platform.directories, directories,
                             kind == kVolumesLocal ? runTables : nullptr);
    if (!listing.empty()) return;
  }
}

bool FileSystemBase::SearchHour(UtcMs& time, UtcMs end, std::span<const RequestKey> requested,
                                std::vector<std::string>& volumes, HourListing& listing) {
  if (!FindNextHour(time, end)) {
    LogPrintf(LogTrace, "SEARCH: didn't find any subsequent hours with matching files.");
    return false;
  }
  ListHour(time, requested, volumes, listing);
  const CalendarTime local = ToLocal(time);
  char date[32];
  std::snprintf(date, sizeof date, "%04d-%02d-%02d", local.year, local.month, local.day);
  LogPrintf(LogTrace, "SEARCH: %s hour %02d matched %d files.", date, local.hour,
            static_cast<int>(listing.size()));
  return true;
}

}  // namespace qv::kelvo
