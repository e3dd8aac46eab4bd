#pragma once

#include "platform/Clock.h"

namespace qv::kelvo {

// Broken-down time.
struct CalendarTime {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;    // 1 to 31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int weekday = 0;  // Sunday is 0
};

// In the process's time zone. Any thread.
[[nodiscard]] CalendarTime ToLocal(UtcMs time);

// Hour of the week in local time, 0 to 167 from Sunday 00:00, for a sequence of nearby moments: it
// asks the time zone once per quarter of an hour, since zones change their offset only at quarters.
// One thread at a time.
class HourOfWeekClock {
 public:
  [[nodiscard]] int HourOfWeek(UtcMs time);

 private:
  std::int64_t quarter = -1;
  bool known = false;
  int hour = 0;
};

}  // namespace qv::kelvo
