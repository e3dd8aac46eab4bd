#include "storage/StorageFile.h"

#include <cstdlib>

#include "host/Log.h"
#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {
namespace {

constexpr char kFileName[] = "kelvo.xml";
constexpr const char* kBroadcastOnly[] = {"Thumbnail", "SupportsTargetSearch", "RecordAlarms"};
constexpr int kBroadcastValues[] = {2, 1, 1};

TiXmlElement& Append(TiXmlNode& parent, const char* name) {
  return *parent.LinkEndChild(new TiXmlElement(name))->ToElement();
}

TiXmlElement& FindOrMake(TiXmlElement& parent, const char* name) {
  TiXmlElement* found = parent.FirstChildElement(name);
  return found != nullptr ? *found : Append(parent, name);
}

// The child whose attribute holds the number; a new one gets it. Bits outside `mask` don't count.
TiXmlElement& FindOrMake(TiXmlElement& parent, const char* name, const char* attribute,
                         std::uint32_t number, std::uint32_t mask = ~0u) {
  for (TiXmlElement* child = parent.FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    int value = 0;
    if (ReadInt(*child, attribute, value) && (static_cast<std::uint32_t>(value) & mask) == number) {
      return *child;
    }
  }
  TiXmlElement& made = Append(parent, name);
  made.SetAttribute(attribute, static_cast<int>(number));
  return made;
}

TiXmlElement& FindOrMakeDrive(TiXmlElement& storage, const std::string& name) {
  for (TiXmlElement* drive = storage.FirstChildElement("Drive"); drive != nullptr;
       drive = drive->NextSiblingElement("Drive")) {
    if (name == ReadText(*drive, "Name")) return *drive;
  }
  TiXmlElement& made = Append(storage, "Drive");
  made.SetAttribute("Name", name);
  return made;
}

void WriteSettings(const StorageTables& tables, TiXmlElement& storage) {
  const RetentionRules& retention = tables.retention;
  const std::int32_t days = retention.expirationDays;
  storage.SetAttribute("Expiration", days == 0 ? 1 : 0);
  storage.SetAttribute("PreserveExpirationAudioWithVideo",
                       retention.preserveExpirationAudioWithVideo ? 1 : 0);
  storage.SetAttribute("TimeLapseSchedule", 1);
  storage.SetAttribute("TimeLapse", tables.lapse.timeLapse);
  storage.SetAttribute("ContentAge", retention.contentAge);
  storage.SetAttribute("FSCleanupRemoves", retention.fsCleanupRemoves ? 1 : 0);
  for (const char* name : kBroadcastOnly) storage.RemoveAttribute(name);

  const int rule = days > 0 ? RetentionRules::kExpirationKeep : RetentionRules::kExpirationExpire;
  TiXmlElement& expiration = FindOrMake(storage, "Expiration");
  expiration.SetAttribute("Type", days == 0 ? RetentionRules::kExpirationNone : rule);
  expiration.SetAttribute("Days", std::to_string(std::abs(std::int64_t{days})));
}

void WriteSchedule(qv::kelvo::StreamID input, const Schedule& schedule, TiXmlElement& storage) {
  TiXmlElement& devices =
      FindOrMake(storage, "Devices", "ID", qv::kelvo::ProviderOf(input), qv::kelvo::kProviderMask);
  TiXmlElement* holder = &FindOrMake(devices, "Device", "Number", qv::kelvo::DeviceOf(input));
  const std::uint32_t context = qv::kelvo::ContextOf(input);
  if (context != 0) holder = &FindOrMake(*holder, "Context", "Number", context);
  TiXmlElement& video = FindOrMake(*holder, "Video");
  TiXmlElement& element =
      FindOrMake(FindOrMake(video, "Input", "Number", qv::kelvo::InputOf(input)), "Schedule");
  element.Clear();
  for (const ScheduleEntry& row : schedule) {
    TiXmlElement& entry = Append(element, "Entry");
    entry.SetAttribute("FirstHour", row.FirstHour);
    entry.SetAttribute("LastHour", row.LastHour);
    entry.SetAttribute("TimeLapse", row.Value);
  }
}

void WriteDrives(const DriveTable& table, TiXmlElement& storage) {
  for (const auto& [name, record] : table.drives) {
    TiXmlElement& drive = FindOrMakeDrive(storage, name);
    drive.SetAttribute("Enabled", record.disabled ? 0 : 1);
    drive.SetAttribute("Percent", 100 - record.reservePercent);
    drive.SetAttribute("System", record.system ? 1 : 0);
  }
  for (TiXmlElement* drive = storage.FirstChildElement("Drive"); drive != nullptr;
       drive = drive->NextSiblingElement("Drive")) {
    const auto absent = table.absentDrives.find(ReadText(*drive, "Name"));
    if (absent != table.absentDrives.end()) drive->SetAttribute("Enabled", absent->second ? 1 : 0);
  }
}

TiXmlElement& RootOf(XmlDocument& document) {
  if (TiXmlElement* root = document.FirstChildElement(kRootName); root != nullptr) return *root;
  TiXmlElement& root = Append(document, kRootName);
  root.SetAttribute("Delta", 0);
  return root;
}

}  // namespace

bool StorageFile::Load(XmlDocument& document) {
  return document.LoadFileWithBackup(platform, kFileName) == XmlFileState::Good;
}

std::string StorageFile::Save(const StorageTables& tables) {
  XmlDocument document;
  std::string before;
  if (Load(document)) {
    before = PrintXml(document);
  } else {
    document = XmlDocument();
    document.LinkEndChild(new TiXmlDeclaration("", "", ""));
  }
  TiXmlElement& root = RootOf(document);
  TiXmlElement& storage = FindOrMake(root, "Storage", "ID", KELVO_MODULE_ID);
  WriteSettings(tables, storage);
  for (const auto& [input, schedule] : tables.lapse.timeLapseSchedules) {
    WriteSchedule(input, schedule, storage);
  }
  WriteDrives(tables.driveTable, storage);
  // A save waits for the disk, and most starts change nothing.
  if (PrintXml(document) != before) Write(document);

  while (TiXmlElement* cases = root.FirstChildElement("Cases")) root.RemoveChild(cases);
  for (std::size_t i = 0; i < std::size(kBroadcastOnly); ++i) {
    storage.SetAttribute(kBroadcastOnly[i], kBroadcastValues[i]);
  }
  return PrintXml(document);
}

void StorageFile::SaveElement(const TiXmlElement& element) {
  XmlDocument document;
  if (!Load(document)) return;
  TiXmlElement* root = document.RootElement();
  if (root == nullptr) return;
  if (TiXmlElement* earlier = root->FirstChildElement(element.Value()); earlier != nullptr) {
    root->ReplaceChild(earlier, element);
  } else {
    root->InsertEndChild(element);
  }
  Write(document);
}

void StorageFile::Write(XmlDocument& document) {
  const bool written = document.SaveFile(platform, kFileName);
  if (!written && !writeFailed) {
    LogPrintf(LogError, "%s could not be saved: %s", kFileName, document.ErrorDesc());
  } else if (written && writeFailed) {
    LogPrintf(LogInfo, "%s is saved again", kFileName);
  }
  writeFailed = !written;
}

}  // namespace qvsvr::kelvo
