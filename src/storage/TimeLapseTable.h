#pragma once

#include <cstdint>
#include <map>

#include "host/Xml.h"
#include "media/StreamId.h"
#include "storage/Schedule.h"

namespace qvsvr::kelvo {

// Time-lapse intervals in milliseconds: the global one, and schedules per input. Worker thread
// only.
struct TimeLapseTable {
  std::int32_t timeLapse = 0;  // below 1 is off
  std::uint32_t timeLapseChanges = 0;
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
