// The walk of FileSystemBase over the dated tree.

#include <cstdio>

#include "host/Log.h"
#include "platform/Files.h"
#include "tree/FileSystemBase.h"
#include "tree/LocalTime.h"

namespace qv::kelvo {

using qvsvr::kelvo::LogPrintf;
using qvsvr::kelvo::LogTrace;

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
