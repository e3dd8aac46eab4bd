#pragma once

#include "media/LocalTime.h"
#include "platform/Clock.h"

namespace qv::kelvo {

// Arithmetic over the hours of the process's time zone. In the night when clocks are set back an
// hour of the day comes twice: both are hours of their own here. An hour that is skipped in spring
// isn't there at all. All results are on the hour, or, where a zone shifts by less than an hour, at
// the first moment that has the hour. Any thread.

// The start of the hour that `time` lies in.
[[nodiscard]] UtcMs LocalHourStart(UtcMs time);

// The first moment with this local time, or the first one behind the gap that it falls into. Only
// year to minute of `local` count; a month or day past its end counts on into the next.
[[nodiscard]] UtcMs FromLocal(const CalendarTime& local);

// The start of the next hour, day, month or year; always later than `time`.
[[nodiscard]] UtcMs NextLocalHour(UtcMs time);
[[nodiscard]] UtcMs NextLocalDay(UtcMs time);
[[nodiscard]] UtcMs NextLocalMonth(UtcMs time);
[[nodiscard]] UtcMs NextLocalYear(UtcMs time);

}  // namespace qv::kelvo
