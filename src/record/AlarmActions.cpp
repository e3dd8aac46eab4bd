#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "host/DeviceNest.h"
#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"

namespace qvsvr::kelvo {
namespace {

// An alarm that began or ended on an input.
struct InputAlarm {
  std::int32_t Input = 0;
  std::int32_t Action = 0;
  bool Begins = false;
  qv::kelvo::UtcMs Time = 0;
};

// Seconds since 1970, up to the end of 32 unsigned bits.
bool ReadTime(const TiXmlElement& element, std::int64_t& seconds) {
  if (std::int32_t value = 0; ReadInt(element, "Time", value)) {
    seconds = value;
    return true;
  }
  if (std::uint32_t value = 0; ExtractUnsigned(element, "Time", value)) {
    seconds = value;
    return true;
  }
  return false;
}

std::optional<InputAlarm> ReadInputAlarm(const TiXmlElement& element) {
  InputAlarm alarm;
  std::int64_t seconds = 0;
  std::int32_t milliseconds = 0, record = 0;
  if (!ExtractInt(element, "Number", alarm.Input) || !ReadTime(element, seconds) ||
      !ReadInt(element, "Milliseconds", milliseconds) ||
      !ReadInt(element, "Action", alarm.Action) || !ReadInt(element, "Record", record)) {
    return std::nullopt;
  }
  alarm.Begins = record != 0;
  alarm.Time = seconds * 1000 + milliseconds;
  return alarm;
}

// The streams of a device in one context: their ids differ in the low byte only.
std::vector<RecordStream*> StreamsOf(const StreamSet& streams, const DeviceAddress& address) {
  std::vector<RecordStream*> found;
  if (address.Context < 0 || address.Context > 15) return found;
  if (address.Device < 0 || address.Device > 255) return found;
  for (std::uint32_t lowByte = 0; lowByte < 256; ++lowByte) {
    if (RecordStream* stream = streams.Find(address.With(lowByte))) found.push_back(stream);
  }
  return found;
}

void ApplyInputAlarm(const std::vector<RecordStream*>& streams, bool isVideo,
                     const InputAlarm& alarm) {
  if (alarm.Input < 0) return;  // or it would match empty slots
  const int first = isVideo ? 0 : kVideoSlots;
  const int end = isVideo ? kVideoSlots : kSlots;
  for (RecordStream* stream : streams) {
    for (int slot = first; slot < end; ++slot) {
      if (stream->EffectiveInput(slot) != alarm.Input) continue;
      auto& active = stream->Slots[static_cast<std::size_t>(slot)].ActiveAlarms;
      if (alarm.Begins) {
        stream->MarkPending(alarm.Time, slot, kFlagAlarm);
        active[alarm.Action] = std::nullopt;
      } else {
        active[alarm.Action] = alarm.Time;
      }
    }
  }
}

void ApplyContextAlarms(const StreamSet& streams, const DeviceAddress& address,
                        const TiXmlElement& element) {
  const std::vector<RecordStream*> ofDevice = StreamsOf(streams, address);
  if (ofDevice.empty()) return;
  for (const TiXmlElement* group = element.FirstChildElement(); group != nullptr;
       group = group->NextSiblingElement()) {
    const std::string_view kind = group->Value();
    if (kind != "Video" && kind != "Audio") continue;
    for (const TiXmlElement& input : Children(*group, "Input")) {
      if (const auto alarm = ReadInputAlarm(input)) {
        ApplyInputAlarm(ofDevice, kind == "Video", *alarm);
      }
    }
  }
}

}  // namespace

void ApplyActionDevices(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("Devices") == nullptr) return;
  ++target.Services.Stats.adev;
  ForEachDevice(root, [&](std::uint32_t id, std::int32_t number, const TiXmlElement& device) {
    ForEachContext(device, [&](std::int32_t context, const TiXmlElement& element) {
      ApplyContextAlarms(target.Streams, {id, number, context}, element);
    });
  });
}

}  // namespace qvsvr::kelvo
