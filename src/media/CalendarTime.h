#pragma once

namespace qv::kelvo {

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

}  // namespace qv::kelvo
