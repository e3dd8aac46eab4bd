#include "storage/TimeLapseTable.h"

namespace qvsvr::kelvo {
namespace {

Schedule ReadSchedule(const TiXmlElement& element) {
  Schedule list;
  for (const TiXmlElement& entry : Children(element, "Entry")) {
    ScheduleEntry row;
    if (ReadInt(entry, "FirstHour", row.FirstHour) && ReadInt(entry, "LastHour", row.LastHour) &&
        ReadInt(entry, "TimeLapse", row.Value)) {
      list.push_back(row);
    }
  }
  return list;
}

// `holder` is the Device or Context element around one Video element.
void ApplyVideo(TimeLapseTable& table, const TiXmlElement& holder, int context, int provider,
                int device) {
  const TiXmlElement* video = holder.FirstChildElement("Video");
  if (video == nullptr) return;
  for (const TiXmlElement& input : Children(*video, "Input")) {
    int number = 0;
    const TiXmlElement* schedule = input.FirstChildElement("Schedule");
    if (schedule == nullptr || !ReadInt(input, "Number", number)) continue;
    const qv::kelvo::StreamID id = qv::kelvo::MakeStreamID(
        static_cast<std::uint32_t>(context), static_cast<std::uint32_t>(provider),
        static_cast<std::uint32_t>(device), static_cast<std::uint32_t>(number));
    table.timeLapseSchedules[id] = ReadSchedule(*schedule);
  }
}

}  // namespace

void TimeLapseTable::SetTimeLapse(std::int32_t milliseconds) {
  if (milliseconds < 0 || milliseconds == timeLapse) return;
  timeLapse = milliseconds;
  ++timeLapseChanges;
}

void TimeLapseTable::ApplyDevices(const TiXmlElement& storage) {
  for (const TiXmlElement& devices : Children(storage, "Devices")) {
    int provider = 0;
    if (!ReadInt(devices, "ID", provider)) continue;
    for (const TiXmlElement& device : Children(devices, "Device")) {
      int number = 0;
      if (!ReadInt(device, "Number", number)) continue;
      ApplyVideo(*this, device, 0, provider, number);
      for (const TiXmlElement& contextElement : Children(device, "Context")) {
        int context = 0;
        if (ReadInt(contextElement, "Number", context)) {
          ApplyVideo(*this, contextElement, context, provider, number);
        }
      }
    }
  }
}

bool TimeLapseTable::GetSchedule(qv::kelvo::StreamID input, Schedule& list) const {
  const auto entry = timeLapseSchedules.find(input);
  if (entry == timeLapseSchedules.end()) return false;
  list = entry->second;
  return true;
}

}  // namespace qvsvr::kelvo
