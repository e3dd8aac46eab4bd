#include "storage/StorageMessages.h"

#include <algorithm>

#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

void ApplySettings(const StorageTables& tables, const TiXmlElement& storage) {
  int value = 0;
  if (ReadInt(storage, "PreserveExpirationAudioWithVideo", value)) {
    tables.retention.SetPreserveAudio(value != 0);
  }
  if (ReadInt(storage, "TimeLapse", value)) tables.lapse.SetTimeLapse(value);
  if (ReadInt(storage, "ContentAge", value)) tables.retention.SetContentAge(value);
  if (ReadInt(storage, "FSCleanupRemoves", value)) tables.retention.fsCleanupRemoves = value != 0;

  const TiXmlElement* expiration = storage.FirstChildElement("Expiration");
  int days = 0;
  if (expiration != nullptr && ReadInt(*expiration, "Type", value) &&
      ReadInt(*expiration, "Days", days)) {
    tables.retention.SetExpiration(value, days);
  }
}

// Percent is the share of the drive that may be recorded; what is kept free is the rest.
void ApplyDrive(const TiXmlElement& element, DriveRecord& record) {
  int value = 0;
  if (ReadInt(element, "Enabled", value)) record.disabled = value == 0;
  if (ReadInt(element, "Percent", value)) record.reservePercent = 100 - std::clamp(value, 0, 100);
}

// A drive that is missing is an alarm, unless it was switched off on purpose; what was told of it
// is remembered for the settings file, for it may come back.
void AnswerAbsentDrive(const TiXmlElement& element, const std::string& name,
                       std::map<std::string, bool>& absentDrives, std::int64_t nowSeconds,
                       TiXmlElement& reply) {
  int value = 0;
  if (ReadInt(element, "Enabled", value)) absentDrives[name] = value != 0;
  const auto stored = absentDrives.find(name);
  const bool alarm = stored == absentDrives.end() || stored->second;
  reply.InsertEndChild(DriveNotFound(name, alarm, nowSeconds));
}

}  // namespace

TiXmlElement DriveNotFound(const std::string& name, bool alarm, std::int64_t nowSeconds) {
  TiXmlElement drive("Drive");
  drive.SetAttribute("Name", name);
  drive.SetAttribute("Alarm", alarm ? 1 : 0);
  drive.SetAttribute("Time", std::to_string(nowSeconds));
  drive.SetAttribute("Message", "Drive not found");
  return drive;
}

bool ApplyStorageElement(const StorageTables& tables, const TiXmlElement& storage,
                         std::int64_t nowSeconds, TiXmlElement& reply) {
  ApplySettings(tables, storage);
  tables.lapse.ApplyDevices(storage);

  bool drivesGiven = false;
  for (const TiXmlElement& element : Children(storage, "Drive")) {
    const std::string name = qv::kelvo::WithSeparator(ReadText(element, "Name"));
    if (name.empty()) continue;
    const auto known = tables.driveTable.Told(name);
    if (known != tables.driveTable.drives.end()) {
      ApplyDrive(element, known->second);
      drivesGiven = true;
    } else {
      AnswerAbsentDrive(element, name, tables.driveTable.absentDrives, nowSeconds, reply);
    }
  }
  return drivesGiven;
}

bool HasModuleId(const TiXmlElement& element, std::uint32_t moduleId) {
  int id = 0;
  return ReadInt(element, "ID", id) && static_cast<std::uint32_t>(id) == moduleId;
}

// Disks that can't be prepared for recording aren't offered to us.
std::set<std::string> PreparedDrives(const TiXmlElement& storage) {
  std::set<std::string> names;
  for (const TiXmlElement& disk : Children(storage, "Disk")) {
    int supported = 0;
    if (!ReadInt(disk, "SupportsPrep", supported) || supported == 0) continue;
    for (const TiXmlElement& drives : Children(disk, "Drives")) {
      for (const TiXmlElement& drive : Children(drives, "Drive")) {
        const std::string name = qv::kelvo::WithSeparator(ReadText(drive, "Name"));
        if (!name.empty()) names.insert(name);
      }
    }
  }
  return names;
}

}  // namespace qvsvr::kelvo
