#pragma once

#include "platform/Clock.h"

namespace qv::kelvo {

// Broken-down time of some zone.
struct CalendarTime {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;    // 1 to 31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
  int weekday = 0;  // Sunday is 0
};

// The moment in the process's time zone, by the rules in force in its own year. Moments outside the
// years 1601 to 9999 count as the nearest inside. Any thread.
[[nodiscard]] CalendarTime ToLocal(UtcMs time);

// Both ends of that range, some days away from where a zone could lead out of it.
inline constexpr UtcMs kFirstLocalMs = -11'644'300'800'000;  // 1601-01-05
inline constexpr UtcMs kLastLocalMs = 253'402'000'000'000;   // 9999-12-27

}  // namespace qv::kelvo
