#include "storage/StatusReport.h"

#include <algorithm>

#include "host/Log.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {
namespace {

// A value of `reportedAlarm` beside the alarm bits.
constexpr std::int32_t kToldNotPossible = 1;
constexpr std::int64_t kContentAgeWindow = 3600;

void SetAlarm(TiXmlElement& drive, int alarm, const char* message) {
  drive.SetAttribute("Alarm", alarm);
  drive.SetAttribute("Message", message);
}

const char* FaultText(std::uint32_t alarmBits) {
  if ((alarmBits & kAlarmSpaceQuery) != 0) return "Get disk space error";
  if ((alarmBits & kAlarmReadWrite) != 0) return "Write error";
  return "Unknown error";
}

void TellState(DriveRecord& record, bool recordingNotPossible, TiXmlElement& drive) {
  if (record.disabled) {
    SetAlarm(drive, 0, "Disabled");
    record.reportedAlarm = 0;
    return;
  }
  if (recordingNotPossible) {
    if (record.reportedAlarm == kToldNotPossible) return;
    SetAlarm(drive, 1, "Recording Not Possible");
    record.reportedAlarm = kToldNotPossible;
    return;
  }
  const auto bits = static_cast<std::int32_t>(record.alarmBits);
  if (bits == 0) {
    SetAlarm(drive, 0, "Healthy");
  } else if (bits != record.reportedAlarm) {
    SetAlarm(drive, 1, FaultText(record.alarmBits));
  }
  record.reportedAlarm = bits;
}

void SetBit(std::uint32_t& bits, std::uint32_t bit, bool on) {
  bits = on ? bits | bit : bits & ~bit;
}

}  // namespace

void StatusReport::MeasureDrives(DriveTable& table, const DriveTests& tests) {
  sizes.clear();
  for (auto& [name, record] : table.drives) {
    Size size;
    const bool measured = tests.space(name, size.totalGB, size.freeGB);
    if (measured) sizes[name] = size;
    SetBit(record.alarmBits, kAlarmSpaceQuery, !measured);
    SetBit(record.alarmBits, kAlarmReadWrite, !record.disabled && !tests.readWrite(name));
  }
}

TiXmlElement StatusReport::Build(DriveTable& table, bool recordingNotPossible,
                                 std::int64_t nowSeconds, const Measures* measures) {
  TiXmlElement storage("Storage");
  if (measures != nullptr) {
    storage.SetAttribute("Time", std::to_string(measures->oldest));
    SetDouble(storage, "RecordingMbps", measures->recordingMbps);
  }
  for (auto& [name, record] : table.drives) {
    table.absentDrives.erase(name);
    TiXmlElement drive("Drive");
    drive.SetAttribute("Name", name);
    drive.SetAttribute("Time", std::to_string(nowSeconds));
    if (measures != nullptr) {
      const Size size = sizes[name];
      drive.SetAttribute("SizeGB", std::to_string(size.totalGB));
      drive.SetAttribute("FreeGB", std::to_string(size.freeGB));
    }
    TellState(record, recordingNotPossible, drive);
    storage.InsertEndChild(drive);
  }
  contentAgeSettled = false;
  if (measures != nullptr) AddContentAge(*measures, nowSeconds, storage);
  return storage;
}

// The alarm: recordings went for room within the last hour, and what is left doesn't reach back as
// far as is wanted.
void StatusReport::AddContentAge(const Measures& measures, std::int64_t nowSeconds,
                                 TiXmlElement& storage) {
  const int alarm =
      measures.roomMakingCount != 0 &&
      qv::kelvo::AddSeconds(measures.lastRoomMakingTime, kContentAgeWindow) > nowSeconds &&
      nowSeconds - measures.wantedAge < measures.oldest;
  if (alarm == contentAgeAlarm) return;
  contentAgeAlarm = alarm;
  contentAgeSettled = alarm == 0;
  storage.SetAttribute("ContentAge", alarm);
  storage.SetAttribute("AlarmTime", std::to_string(nowSeconds));
}

void ScanTimes::Note(std::uint64_t microseconds) {
  oldestScanMinMicros = std::min(oldestScanMinMicros, microseconds);
  oldestScanMaxMicros = std::max(oldestScanMaxMicros, microseconds);
  LogPrintf(LogTrace, "Stats - foucur:%sus, foumin:%sus, foumax:%sus",
            FormatCount(microseconds).c_str(), FormatCount(oldestScanMinMicros).c_str(),
            FormatCount(oldestScanMaxMicros).c_str());
}

}  // namespace qvsvr::kelvo
