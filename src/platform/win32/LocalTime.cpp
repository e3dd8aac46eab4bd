#include "platform/LocalTime.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/win32/Win32.h"

namespace qv::kelvo {
namespace {

// The rules of the system's zone by year: the C library and the calls without a year apply this
// year's to every year. Any thread.
class ZoneRules {
 public:
  TIME_ZONE_INFORMATION Of(WORD year) {
    DYNAMIC_TIME_ZONE_INFORMATION current;
    std::memset(&current, 0, sizeof current);
    (void)GetDynamicTimeZoneInformation(&current);
    const std::lock_guard guard(lock);
    if (std::memcmp(&current, &zone, sizeof zone) != 0) {
      zone = current;
      years.clear();
    }
    const auto [entry, isNew] = years.try_emplace(year);
    if (isNew && GetTimeZoneInformationForYear(year, &zone, &entry->second) == 0) {
      (void)GetTimeZoneInformation(&entry->second);
    }
    return entry->second;
  }

 private:
  std::mutex lock;
  DYNAMIC_TIME_ZONE_INFORMATION zone{};
  std::map<WORD, TIME_ZONE_INFORMATION> years;
};

SYSTEMTIME ToZone(const SYSTEMTIME& utc, WORD year) {
  static ZoneRules rules;
  const TIME_ZONE_INFORMATION rule = rules.Of(year);
  SYSTEMTIME local{};
  return SystemTimeToTzSpecificLocalTime(&rule, &utc, &local) != 0 ? local : utc;
}

}  // namespace

CalendarTime ToLocal(UtcMs time) {
  time = std::clamp(time, kFirstLocalMs, kLastLocalMs);
  const auto ticks =
      static_cast<std::uint64_t>(time * (kTicksPerSecond / 1000) + kTicksFrom1601To1970);
  const FILETIME moment{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME utc{};
  FileTimeToSystemTime(&moment, &utc);
  SYSTEMTIME local = ToZone(utc, utc.wYear);
  if (local.wYear != utc.wYear) local = ToZone(utc, local.wYear);
  return {local.wYear,   local.wMonth,  local.wDay,          local.wHour,
          local.wMinute, local.wSecond, local.wMilliseconds, local.wDayOfWeek};
}

}  // namespace qv::kelvo
