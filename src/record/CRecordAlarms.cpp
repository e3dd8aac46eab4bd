#include "record/CRecordAlarms.h"

#include "host/Xml.h"

namespace qvsvr::kelvo {
namespace {

// Stands in ActiveStream for "recording" when no stream is meant.
constexpr std::uint32_t kSomeStream = 1;

TiXmlElement* AddElement(TiXmlElement* parent, const char* name) {
  auto* child = new TiXmlElement(name);
  parent->LinkEndChild(child);
  return child;
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

}  // namespace qvsvr::kelvo
