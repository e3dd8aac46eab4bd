#include "media/LocalTime.h"

#include <wx/datetime.h>

namespace qv::kelvo {

CalendarTime ToLocal(UtcMs time) {
  const wxDateTime::Tm local = wxDateTime(wxLongLong(time)).GetTm();
  return {local.year,
          local.mon + 1,
          local.mday,
          local.hour,
          local.min,
          local.sec,
          local.msec,
          wxDateTime::Tm(local).GetWeekDay()};
}

int HourOfWeekClock::HourOfWeek(UtcMs time) {
  constexpr UtcMs kQuarterMs = 15 * 60 * 1000;
  const UtcMs current = time / kQuarterMs - (time % kQuarterMs < 0 ? 1 : 0);
  if (!known || current != quarter) {
    const CalendarTime local = ToLocal(time);
    hour = local.weekday * 24 + local.hour;
    quarter = current;
    known = true;
  }
  return hour;
}

}  // namespace qv::kelvo
