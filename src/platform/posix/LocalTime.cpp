#include "platform/LocalTime.h"

#include <time.h>

#include <algorithm>

namespace qv::kelvo {

static_assert(sizeof(time_t) == 8);

CalendarTime ToLocal(UtcMs time) {
  time = std::clamp(time, kFirstLocalMs, kLastLocalMs);
  const UtcMs millisecond = (time % 1000 + 1000) % 1000;
  const time_t seconds = (time - millisecond) / 1000;
  struct tm local {};
  localtime_r(&seconds, &local);
  return {local.tm_year + 1900,
          local.tm_mon + 1,
          local.tm_mday,
          local.tm_hour,
          local.tm_min,
          local.tm_sec,
          static_cast<int>(millisecond),
          local.tm_wday};
}

}  // namespace qv::kelvo
