#include "storage/Schedule.h"

#include "host/DeviceNest.h"

namespace qvsvr::kelvo {
namespace {

// Of the first Video element of a Device or Context element.
void ApplyVideo(TimeLapseTable& table, const TiXmlElement& holder, std::int32_t context,
                std::uint32_t provider, std::int32_t device) {
  const TiXmlElement* video = holder.FirstChildElement("Video");
  if (video == nullptr) return;
  ForEachNumbered(*video, "Input", [&](std::int32_t number, const TiXmlElement& input) {
    const TiXmlElement* schedule = input.FirstChildElement("Schedule");
    if (schedule == nullptr) return;
    const qv::kelvo::StreamID id = qv::kelvo::MakeStreamID(
        static_cast<std::uint32_t>(context), provider, static_cast<std::uint32_t>(device),
        static_cast<std::uint32_t>(number));
    Schedule& list = table.timeLapseSchedules[id];
    list.clear();
    ReadSchedule(*schedule, "TimeLapse", list);
  });
}

}  // namespace

void ReadSchedule(const TiXmlElement& element, const char* value, Schedule& list) {
  for (const TiXmlElement& child : Children(element, "Entry")) {
    ScheduleEntry entry;
    if (ReadInt(child, "FirstHour", entry.FirstHour) &&
        ReadInt(child, "LastHour", entry.LastHour) && ReadInt(child, value, entry.Value)) {
      list.push_back(entry);
    }
  }
}

void TimeLapseTable::SetTimeLapse(std::int32_t milliseconds) {
  if (milliseconds < 0 || milliseconds == timeLapse) return;
  timeLapse = milliseconds;
  ++timeLapseChanges;
}

// An element without entries leaves an input with an empty schedule, which isn't the same as none:
// a stream takes it over (GetSchedule).
void TimeLapseTable::ApplyDevices(const TiXmlElement& storage) {
  ForEachDevice(storage, [&](std::uint32_t id, std::int32_t number, const TiXmlElement& device) {
    ForEachContext(device, [&](std::int32_t context, const TiXmlElement& element) {
      ApplyVideo(*this, element, context, id, number);
    });
  });
}

bool TimeLapseTable::GetSchedule(qv::kelvo::StreamID input, Schedule& list) const {
  const auto entry = timeLapseSchedules.find(input);
  if (entry == timeLapseSchedules.end()) return false;
  list = entry->second;
  return true;
}

}  // namespace qvsvr::kelvo
