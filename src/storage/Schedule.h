#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "host/Xml.h"
#include "media/StreamId.h"

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

// Time-lapse intervals in milliseconds: the global one, and schedules per input. Worker thread
// only.
struct TimeLapseTable {
  std::int32_t timeLapse = 0;          // below 1 is off
  std::uint32_t timeLapseChanges = 0;  // nothing reads it
  // In the order of the message; unsorted.
  std::map<qv::kelvo::StreamID, Schedule> timeLapseSchedules;

  // Copies the schedule of an input; false, with `list` as it was, when it has none.
  [[nodiscard]] bool GetSchedule(qv::kelvo::StreamID input, Schedule& list) const;

  // A negative interval is ignored.
  void SetTimeLapse(std::int32_t milliseconds);

  // Takes the schedules of all inputs below the Devices children of a Storage element. A schedule
  // replaces the input's earlier one; entries with an unreadable attribute are left out.
  void ApplyDevices(const TiXmlElement& storage);
};

}  // namespace qvsvr::kelvo
