#include "storage/Schedule.h"

namespace qvsvr::kelvo {

void ReadSchedule(const TiXmlElement& element, const char* value, Schedule& list) {
  for (const TiXmlElement& child : Children(element, "Entry")) {
    ScheduleEntry entry;
    if (ReadInt(child, "FirstHour", entry.FirstHour) &&
        ReadInt(child, "LastHour", entry.LastHour) && ReadInt(child, value, entry.Value)) {
      list.push_back(entry);
    }
  }
}

}  // namespace qvsvr::kelvo
