#pragma once

#include <cstdint>
#include <optional>

#include "platform/Clock.h"

namespace qv::kelvo {

inline constexpr std::uint32_t kMsPerDay = 86'400'000;

// A date of the years 2000 to 2127 in 16 bits: (year - 2000) << 9 | month << 5 | day. 0 is no date.
using PackedDate = std::uint16_t;

// A moment as both files hold it, UTC.
struct PackedTime {
  PackedDate date = 0;
  std::uint32_t ms = 0;  // of the day; a stored value may reach into the next day

  bool operator==(const PackedTime&) const = default;
};

// Nothing when a part is out of range; the day isn't held against the month's length.
[[nodiscard]] std::optional<PackedDate> PackDate(int year, int month, int day);

// The three parts as they are stored, in range or not.
[[nodiscard]] constexpr int YearOf(PackedDate date) {
  return 2000 + (date >> 9);
}
[[nodiscard]] constexpr int MonthOf(PackedDate date) {
  return (date >> 5) & 15;
}
[[nodiscard]] constexpr int DayOf(PackedDate date) {
  return date & 31;
}

// Applies the overflow rule: a day's worth of milliseconds or more moves one day into the date, by
// adding 1 to it as a number. The date isn't made valid otherwise.
[[nodiscard]] PackedTime Carry(PackedTime time);

[[nodiscard]] CalendarTime ToUtc(UtcMs time);

// Whether the moment lies in the years 2000 to 2127.
[[nodiscard]] constexpr bool IsPackable(UtcMs time) {
  constexpr UtcMs kFirst = 946'684'800'000;  // 2000-01-01
  constexpr UtcMs kEnd = 4'985'971'200'000;  // 2128-01-01
  return time >= kFirst && time < kEnd;
}

// Nothing for a moment that isn't packable.
[[nodiscard]] std::optional<PackedTime> Pack(UtcMs time);

// The moment a stored time stands for, after Carry. Months and days out of range count on into the
// next year or month, so that every stored value has a moment.
[[nodiscard]] UtcMs Unpack(PackedTime time);

}  // namespace qv::kelvo
