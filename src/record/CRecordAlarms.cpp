#include "record/CRecordAlarms.h"

#include <limits>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/DeviceNest.h"
#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"

namespace qvsvr::kelvo {
namespace {

// Stands in ActiveStream for "recording" when no stream is meant.
constexpr std::uint32_t kSomeStream = 1;

TiXmlElement* AddElement(TiXmlElement* parent, const char* name) {
  auto* child = new TiXmlElement(name);
  parent->LinkEndChild(child);
  return child;
}

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

// The streams of a device in one context: their ids differ in the low byte only. An alarm names an
// input, which may be in several of them.
std::vector<RecordStream*> StreamsOf(const StreamSet& streams, const DeviceAddress& address) {
  std::vector<RecordStream*> found;
  if (address.Context < 0 || address.Context > 15) return found;
  if (address.Device < 0 || address.Device > 255) return found;
  for (std::uint32_t lowByte = 0; lowByte < 256; ++lowByte) {
    if (RecordStream* stream = streams.Find(address.With(lowByte))) found.push_back(stream);
  }
  return found;
}

// An alarm reaches back to its own time, which is why frames wait for as long as an action's
// pre-alarm says. Its end is noted, not applied: frames from before it may still be on their way.
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

void CRecordAlarms::AddProviders(const ProviderTuples& seen) {
  for (const SProviderTuple& tuple : seen) {
    SAlarm alarm;
    static_cast<SProviderTuple&>(alarm) = tuple;
    const auto [entry, inserted] = Alarms.try_emplace(tuple.Provider, alarm);
    if (inserted) SendRecordIdle(entry->second, {});
  }
}

void CRecordAlarms::RemoveProviders(std::uint32_t id, const ProviderTuples& seen) {
  for (auto entry = Alarms.begin(); entry != Alarms.end();) {
    SAlarm& alarm = entry->second;
    if (alarm.Id != id && seen.contains(alarm)) {
      ++entry;
      continue;
    }
    if (alarm.ActiveStream == 0) {
      alarm.ActiveStream = kSomeStream;
      SendRecordIdle(alarm, {});
    }
    entry = Alarms.erase(entry);
  }
}

void CRecordAlarms::NoteWrite(std::uint32_t provider, std::uint32_t streamId, std::int64_t seconds,
                              std::uint16_t milliseconds, const std::string& path) {
  const auto entry = Alarms.find(static_cast<std::int32_t>(provider));
  if (entry == Alarms.end()) return;
  SAlarm& alarm = entry->second;
  alarm.Time = seconds;
  alarm.Milliseconds = milliseconds;
  if (alarm.ActiveStream != 0) return;
  alarm.ActiveStream = streamId;
  SendRecordIdle(alarm, path);
}

void CRecordAlarms::NoteFileEnd(std::uint32_t streamId, const std::string& path) {
  for (auto& [provider, alarm] : Alarms) {
    if (streamId != 0 && alarm.ActiveStream != streamId) continue;
    alarm.ActiveStream = 0;
    SendRecordIdle(alarm, path);
  }
}

void CRecordAlarms::SendRecordIdle(const SAlarm& alarm, const std::string& path) {
  std::int64_t seconds = alarm.Time;
  std::uint16_t milliseconds = alarm.Milliseconds;
  if (seconds == 0) Core.GetCoreTime(seconds, milliseconds);

  TiXmlDocument document;
  TiXmlElement* devices = AddElement(BeginXml(document), "Devices");
  devices->SetAttribute("ID", std::to_string(alarm.Id));
  TiXmlElement* parent = AddElement(devices, "Device");
  parent->SetAttribute("Number", alarm.Device);
  if (alarm.Context != 0) {
    parent = AddElement(parent, "Context");
    parent->SetAttribute("Number", alarm.Context);
  }
  TiXmlElement* input = AddElement(AddElement(parent, "Video"), "Input");
  input->SetAttribute("Number", alarm.Input);
  input->SetAttribute("RecordIdle", alarm.ActiveStream == 0 ? 1 : 0);
  input->SetAttribute("Time", std::to_string(seconds));
  input->SetAttribute("Milliseconds", milliseconds);
  if (!path.empty()) input->SetAttribute("Path", path);
  Core.SendXmlEvent(PrintXml(document), KELVO_CLASS_EVENT);
}

bool operator<(const SProviderTuple& a, const SProviderTuple& b) {
  const auto key = [](const SProviderTuple& tuple) {
    return std::tuple(tuple.Provider, static_cast<std::int32_t>(tuple.Id), tuple.Device,
                      tuple.Input, tuple.Context);
  };
  return key(a) < key(b);
}

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
