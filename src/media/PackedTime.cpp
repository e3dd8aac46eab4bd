#include "media/PackedTime.h"

#include <chrono>

namespace qv::kelvo {

std::optional<PackedDate> PackDate(int year, int month, int day) {
  if (year < 2000 || year > 2127 || month < 1 || month > 12 || day < 1 || day > 31) {
    return std::nullopt;
  }
  return static_cast<PackedDate>((year - 2000) << 9 | month << 5 | day);
}

PackedTime Carry(PackedTime time) {
  if (time.ms < kMsPerDay) return time;
  return {static_cast<PackedDate>(time.date + 1), time.ms - kMsPerDay};
}

CalendarTime ToUtc(UtcMs time) {
  using namespace std::chrono;
  const sys_time<milliseconds> moment{milliseconds{time}};
  const auto midnight = floor<days>(moment);
  const year_month_day date{midnight};
  const hh_mm_ss<milliseconds> clock{moment - midnight};
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(static_cast<unsigned>(date.day())),
          static_cast<int>(clock.hours().count()),
          static_cast<int>(clock.minutes().count()),
          static_cast<int>(clock.seconds().count()),
          static_cast<int>(clock.subseconds().count()),
          static_cast<int>(weekday{midnight}.c_encoding())};
}

std::optional<PackedTime> Pack(UtcMs time) {
  if (!IsPackable(time)) return std::nullopt;
  const CalendarTime utc = ToUtc(time);
  return PackedTime{PackDate(utc.year, utc.month, utc.day).value(),
                    static_cast<std::uint32_t>(time % kMsPerDay)};
}

UtcMs Unpack(PackedTime time) {
  using namespace std::chrono;
  time = Carry(time);
  const year_month_day first =
      year{YearOf(time.date)} / January / 1 + months{MonthOf(time.date) - 1};
  const auto midnight = sys_days{first} + days{DayOf(time.date) - 1};
  return duration_cast<milliseconds>(midnight.time_since_epoch()).count() + UtcMs{time.ms};
}

}  // namespace qv::kelvo
