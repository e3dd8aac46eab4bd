#include "tree/LocalTime.h"

#include <algorithm>
#include <chrono>

namespace qv::kelvo {
namespace {

constexpr UtcMs kMinuteMs = 60'000;
constexpr UtcMs kQuarterMs = 15 * kMinuteMs;  // zones change their offset at quarters only
constexpr UtcMs kHourMs = 60 * kMinuteMs;
constexpr UtcMs kDayMs = 24 * kHourMs;

// The local time as if it were UTC.
UtcMs AsUtc(const CalendarTime& local) {
  using namespace std::chrono;
  const auto month = year{local.year} / January / 1 + months{local.month - 1};
  const sys_days day = sys_days{year_month_day{month}} + days{local.day - 1};
  return duration_cast<milliseconds>(day.time_since_epoch()).count() + local.hour * kHourMs +
         local.minute * kMinuteMs;
}

UtcMs FloorToMinute(UtcMs time) {
  const UtcMs rest = time % kMinuteMs;
  return time - rest - (rest < 0 ? kMinuteMs : 0);
}

UtcMs OffsetAt(UtcMs time) {
  time = FloorToMinute(time);
  return AsUtc(ToLocal(time)) - time;
}

UtcMs Later(UtcMs wanted, UtcMs time) {
  return wanted > time ? wanted : NextLocalHour(time);
}

}  // namespace

UtcMs LocalHourStart(UtcMs time) {
  const CalendarTime local = ToLocal(time);
  const UtcMs minute = FloorToMinute(time);
  UtcMs start = minute - local.minute * kMinuteMs;
  // The offset may have changed since.
  while (start < minute && ToLocal(start).hour != local.hour) {
    start = std::min(start + kQuarterMs, minute);
  }
  return start;
}

Meanings MeaningsOf(const CalendarTime& local) {
  const UtcMs wanted = AsUtc(local);
  const UtcMs before = wanted - OffsetAt(wanted - kDayMs);
  const UtcMs after = wanted - OffsetAt(wanted + kDayMs);
  Meanings found;
  for (const UtcMs time : {std::min(before, after), std::max(before, after)}) {
    if (time + OffsetAt(time) != wanted) continue;
    if (!found.any) found.first = time;
    found.last = time;
    found.any = true;
  }
  return found;
}

UtcMs FromLocal(const CalendarTime& local) {
  if (const Meanings found = MeaningsOf(local); found.any) return found.first;
  // By the offset from before the gap this is as far behind its end as into it.
  const UtcMs wanted = AsUtc(local);
  return LocalHourStart(wanted - OffsetAt(wanted - kDayMs));
}

UtcMs NextLocalHour(UtcMs time) {
  const UtcMs next = LocalHourStart(time + kHourMs);
  return next > time ? next : time + kHourMs;
}

UtcMs NextLocalDay(UtcMs time) {
  const CalendarTime local = ToLocal(time);
  return Later(FromLocal({local.year, local.month, local.day + 1}), time);
}

UtcMs NextLocalMonth(UtcMs time) {
  const CalendarTime local = ToLocal(time);
  return Later(FromLocal({local.year, local.month + 1, 1}), time);
}

UtcMs NextLocalYear(UtcMs time) {
  return Later(FromLocal({ToLocal(time).year + 1, 1, 1}), time);
}

int HourOfWeekClock::HourOfWeek(UtcMs time) {
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
