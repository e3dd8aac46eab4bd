#pragma once

#include <cstdint>

namespace qv::kelvo {

// Milliseconds since 1970-01-01 UTC: the unit of captures and of all that is told by the clock.
// Rules that count in days or by names of files use seconds, and say so.
using UtcMs = std::int64_t;

// The only source of time. Tests move it by hand, so that nothing in them waits; what asks the
// system itself can't be tested so. Any thread may call it; the object outlives all users.
class Clock {
 public:
  virtual ~Clock() = default;

  // Wall clock. May jump in either direction when the system's clock is set.
  [[nodiscard]] virtual UtcMs NowMs() = 0;

  // Monotonic nanoseconds from an arbitrary start; never goes back.
  [[nodiscard]] virtual std::int64_t SteadyNs() = 0;

  // Holds the calling thread up for about so long. Only for what another program is waited for.
  virtual void Pause(int milliseconds) = 0;
};

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

// The moment in the process's time zone, by the rules in force in its own year: a recording of last
// winter isn't named by this summer's. Moments outside the years 1601 to 9999 count as the nearest
// inside. Any thread.
[[nodiscard]] CalendarTime ToLocal(UtcMs time);

// Both ends of that range, some days away from where a zone could lead out of it.
inline constexpr UtcMs kFirstLocalMs = -11'644'300'800'000;  // 1601-01-05
inline constexpr UtcMs kLastLocalMs = 253'402'000'000'000;   // 9999-12-27

}  // namespace qv::kelvo
