#pragma once

#include "media/CalendarTime.h"
#include "platform/Clock.h"

namespace qv::kelvo {

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
