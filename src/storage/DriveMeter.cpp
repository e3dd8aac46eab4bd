#include "storage/DriveMeter.h"

#include "host/Log.h"
#include "platform/Platform.h"

namespace qvsvr::kelvo {
namespace {

constexpr int kBytesToGBShift = 30;

// The directory that a drive's path lies in; empty for one without.
std::string ParentOf(const std::string& name) {
  const std::size_t last = name.find_last_not_of(qv::kelvo::kPathSeparators);
  if (last == std::string::npos) return {};
  const std::size_t separator = name.find_last_of(qv::kelvo::kPathSeparators, last);
  return separator == std::string::npos ? std::string() : name.substr(0, separator + 1);
}

}  // namespace

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

bool DriveMeter::IsMounted(const std::string& name) {
  const std::string parent = ParentOf(name);
  std::uint64_t own = 0;
  std::uint64_t above = 0;
  return !parent.empty() && drives.DeviceNumber(name, own) == 0 &&
         drives.DeviceNumber(parent, above) == 0 && own != above;
}

}  // namespace qvsvr::kelvo
