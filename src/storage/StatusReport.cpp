#include "storage/StatusReport.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "host/Log.h"
#include "platform/Files.h"
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

// Alarm 0 goes out each time, a fault only when the record doesn't say that it was told. While
// recording isn't possible at all, that is told in the place of a drive's own fault.
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

namespace {

using Block = std::array<std::byte, 4096>;
std::string ErrorText(int error) {
  // A disk that is full may take a part without an error.
  return error == 0 ? "incomplete" : qv::kelvo::ErrorText(error);
}

using qv::kelvo::WhileBusy;

int Open(const qv::kelvo::Platform& platform, const std::string& path, qv::kelvo::OpenMode mode,
         std::unique_ptr<qv::kelvo::MediaFile>& file) {
  return WhileBusy(platform.clock, [&] { return platform.mediaFiles.Open(path, mode, file); });
}

int Remove(const std::string& path) {
  const int error = qv::kelvo::RemoveFile(path);
  return qv::kelvo::IsMissing(error) ? 0 : error;
}

bool Write(const qv::kelvo::Platform& platform, const std::string& path, const Block& block) {
  std::unique_ptr<qv::kelvo::MediaFile> file;
  int error = Open(platform, path, qv::kelvo::OpenMode::CreateOrTruncate, file);
  std::size_t written = 0;
  if (error == 0) {
    const qv::kelvo::ConstBytes part(block);
    const qv::kelvo::IoResult result = file->WriteAt(0, {&part, 1});
    written = result.bytes;
    error = result.error;
    const int closing = file->Close();
    if (error == 0) error = closing;
  }
  if (error == 0 && written == block.size()) return true;
  LogPrintf(LogError, "RWT - write %s, failed: %s", path.c_str(), ErrorText(error).c_str());
  return false;
}

bool Read(const qv::kelvo::Platform& platform, const std::string& path, Block& block) {
  std::unique_ptr<qv::kelvo::MediaFile> file;
  qv::kelvo::IoResult result;
  result.error = Open(platform, path, qv::kelvo::OpenMode::Read, file);
  if (result.error == 0) result = file->ReadAt(0, block);
  if (result.error == 0 && result.bytes == block.size()) return true;
  LogPrintf(LogError, "RWT - read %s, failed: %s", path.c_str(), ErrorText(result.error).c_str());
  return false;
}

}  // namespace

// Leaves an empty directory. Scanners and the like hold what they look at for a moment.
bool ReadWriteTest::Prepare(const std::string& directory, const std::string& path) {
  for (const std::string& left : {path, directory}) {
    // A file that somebody holds may be gone and still fill its directory.
    const int error = WhileBusy(
        platform.clock, [&] { return Remove(left); }, &qv::kelvo::IsNotEmpty);
    if (error == 0) continue;
    LogPrintf(LogError, "RWT - remove %s, %s", left.c_str(), ErrorText(error).c_str());
    return false;
  }
  // A drive whose root is gone must not come back as a directory of another one.
  const int error = WhileBusy(platform.clock, [&] { return qv::kelvo::MakeDirectory(directory); });
  if (error == 0) return true;
  LogPrintf(LogError, "RWT - create %s, %s", directory.c_str(), ErrorText(error).c_str());
  return false;
}

bool ReadWriteTest::Run(const std::string& driveName) {
  const std::string directory = driveName + "kelvo";
  const std::string path = directory + qv::kelvo::kPathSeparator + "test.bin";
  if (!Prepare(directory, path)) return false;
  Block written;
  written.fill(static_cast<std::byte>(testPattern++));
  Block read{};
  if (!Write(platform, path, written) || !Read(platform, path, read)) return false;
  if (read == written) return true;
  LogPrintf(LogError, "RWT - compare %s, failed", path.c_str());
  return false;
}

}  // namespace qvsvr::kelvo
