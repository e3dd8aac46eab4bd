#include "tree/FileSystemBase.h"

#include <algorithm>
#include <cinttypes>
#include <set>

#include "host/Log.h"

namespace qv::kelvo {

using qvsvr::kelvo::LogError;
using qvsvr::kelvo::LogPrintf;
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

}  // namespace qv::kelvo
