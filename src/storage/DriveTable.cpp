#include "storage/DriveTable.h"

#include <algorithm>

#include "host/Log.h"
#include "host/Utf8.h"
#include "platform/Platform.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int32_t kSystemReservePercent = 10;
constexpr int kBytesToGBShift = 30;

// The directory that a drive's path lies in; empty for one without.
std::string ParentOf(const std::string& name) {
  const std::size_t last = name.find_last_not_of(qv::kelvo::kPathSeparators);
  if (last == std::string::npos) return {};
  const std::size_t separator = name.find_last_of(qv::kelvo::kPathSeparators, last);
  return separator == std::string::npos ? std::string() : name.substr(0, separator + 1);
}

}  // namespace

void DriveTable::Fill(const std::vector<std::string>& names, const std::string& systemDirectory) {
  drives.clear();
  for (const std::string& name : names) drives.try_emplace(name);
  for (auto& [name, record] : drives) {
    if (systemDirectory.find(name) == std::string::npos) continue;
    record.reservePercent = kSystemReservePercent;
    record.system = true;
    record.disabled = drives.size() > 1;
  }
}

std::map<std::string, DriveRecord>::iterator DriveTable::Told(const std::string& name) {
  const auto same = drives.find(name);
  if (same != drives.end()) return same;
  return std::ranges::find_if(drives,
                              [&](const auto& drive) { return ToUtf8(drive.first) == name; });
}

std::int64_t UsableGB(std::uint32_t totalGB, std::uint32_t freeGB, std::int64_t reservedGB,
                      std::int32_t reservePercent) {
  return std::int64_t{freeGB} - (reservedGB + std::int64_t{reservePercent} * totalGB / 100);
}

// The emptiest drive gets the next file, so that files spread over the drives as long as there is
// room.
std::string ChooseVolume(const std::map<std::string, DriveRecord>& drives, std::int64_t desiredGB,
                         const MeasureDrive& measure) {
  std::string best;
  std::int64_t bestGB = 0;
  for (const auto& [name, record] : drives) {
    const std::int64_t usable = measure(name, record);
    if (usable < desiredGB || (!best.empty() && usable <= bestGB)) continue;
    best = name;
    bestGB = usable;
  }
  return best;
}

bool DriveMeter::Measure(const std::string& name, std::uint32_t& totalGB, std::uint32_t& freeGB) {
  Seen& drive = seen[name];
  qv::kelvo::DriveSpace space;
  std::string failure = drives.Space(name, space);
  if (failure.empty()) {
    const bool mounted = IsMounted(name);
    if (drive.mounted && !mounted) failure = "it is not mounted any more";
    drive.mounted |= mounted;
  }
  if (failure != drive.failure) {
    drive.failure = failure;
    if (!failure.empty()) LogPrintf(LogError, "GDS - %s, %s", name.c_str(), failure.c_str());
  }
  if (!failure.empty()) return false;
  totalGB = static_cast<std::uint32_t>(space.capacity >> kBytesToGBShift);
  freeGB = static_cast<std::uint32_t>(space.available >> kBytesToGBShift);
  return true;
}

// A mounted volume is another device than the directory around it.
bool DriveMeter::IsMounted(const std::string& name) {
  const std::string parent = ParentOf(name);
  std::uint64_t own = 0;
  std::uint64_t above = 0;
  return !parent.empty() && drives.DeviceNumber(name, own) == 0 &&
         drives.DeviceNumber(parent, above) == 0 && own != above;
}

}  // namespace qvsvr::kelvo
