#pragma once

#include <cstdint>
#include <vector>

#include "host/Xml.h"

namespace qvsvr::kelvo {

// Hours of the week, 0 to 167 from Sunday 00:00 local time, both ends included, and what holds in
// them: the `Record` value of a recording schedule, or milliseconds of a time-lapse schedule.
struct ScheduleEntry {
  std::int32_t FirstHour = 0;
  std::int32_t LastHour = 0;
  std::int32_t Value = 0;

  [[nodiscard]] bool Covers(int hourOfWeek) const {
    return FirstHour <= hourOfWeek && LastHour >= hourOfWeek;
  }
  friend bool operator==(const ScheduleEntry&, const ScheduleEntry&) = default;
};
using Schedule = std::vector<ScheduleEntry>;

// Appends the Entry children of a Schedule element, whose values stand in the attribute of that
// name; entries with an attribute that can't be read are left out.
void ReadSchedule(const TiXmlElement& element, const char* value, Schedule& list);

}  // namespace qvsvr::kelvo
