#pragma once

#include <cstdint>
#include <limits>

#include "platform/Clock.h"

namespace qv::kelvo {

// Arithmetic over the hours of the process's time zone, which names the directories and files of
// the tree. In the night when clocks are set back an hour of the day comes twice: both are hours of
// their own here. An hour that is skipped in spring isn't there at all. Hours are on the hour, or,
// where a zone shifts by less than an hour, begin at the first moment that has the hour. Any
// thread.

// Moments of files and directories in seconds since 1970.
inline constexpr std::int64_t kSecondsPerHour = 3600;
inline constexpr std::int64_t kSecondsPerDay = 24 * kSecondsPerHour;
// Later than every moment: what stands for no time, and what never comes.
inline constexpr std::int64_t kNoTime = std::numeric_limits<std::int64_t>::max();

// Later than every time if it doesn't fit.
[[nodiscard]] constexpr std::int64_t AddSeconds(std::int64_t time, std::int64_t seconds) {
  return time > kNoTime - seconds ? kNoTime : time + seconds;
}

// The start of the hour that `time` lies in.
[[nodiscard]] UtcMs LocalHourStart(UtcMs time);

// The moments that a local time stands for, in milliseconds: two apart where it comes twice, none
// (`any` is false) in the gap when clocks are set forward.
struct Meanings {
  UtcMs first = 0;
  UtcMs last = 0;  // `first` unless the time comes twice
  bool any = false;
};
// Only year to minute of `local` count; a month or day past its end counts on into the next.
[[nodiscard]] Meanings MeaningsOf(const CalendarTime& local);

// The first moment with this local time, or the first one behind the gap that it falls into.
[[nodiscard]] UtcMs FromLocal(const CalendarTime& local);

// The start of the next hour, day, month or year; always later than `time`.
[[nodiscard]] UtcMs NextLocalHour(UtcMs time);
[[nodiscard]] UtcMs NextLocalDay(UtcMs time);
[[nodiscard]] UtcMs NextLocalMonth(UtcMs time);
[[nodiscard]] UtcMs NextLocalYear(UtcMs time);

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
