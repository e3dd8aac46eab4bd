#include "platform/LocalTime.h"

#include <algorithm>

#include "platform/win32/Win32.h"

namespace qv::kelvo {

CalendarTime ToLocal(UtcMs time) {
  time = std::clamp(time, kFirstLocalMs, kLastLocalMs);
  const auto ticks =
      static_cast<std::uint64_t>(time * (kTicksPerSecond / 1000) + kTicksFrom1601To1970);
  const FILETIME moment{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME utc{};
  SYSTEMTIME local{};
  FileTimeToSystemTime(&moment, &utc);
  // The C library and the calls without a year apply this year's rule to every year.
  if (SystemTimeToTzSpecificLocalTimeEx(nullptr, &utc, &local) == 0) local = utc;
  return {local.wYear,   local.wMonth,  local.wDay,          local.wHour,
          local.wMinute, local.wSecond, local.wMilliseconds, local.wDayOfWeek};
}

}  // namespace qv::kelvo
