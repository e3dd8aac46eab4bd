#include "storage/StorageFile.h"

#include <cstdlib>
#include <utility>

#include "host/Log.h"
#include "host/Utf8.h"
#include "kelvo/host_abi.h"
#include "platform/Files.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::IsMissing;

constexpr char kFileName[] = "kelvo.xml";
constexpr char kBackupName[] = "kelvo.xml.bak";
constexpr int kMostAside = 100;  // damaged files that are kept
constexpr char kStorage[] = "Storage";
constexpr char kCases[] = "Cases";
// Attributes that tell the host what this system can do: in each broadcast, never in the file.
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

void WriteSettings(const SavedTables& tables, TiXmlElement& storage) {
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

// Drives that the file knows and the table doesn't stay as they are, but for being switched on or
// off by a message meanwhile.
void WriteDrives(const DriveTable& table, TiXmlElement& storage) {
  for (const auto& [name, record] : table.drives) {
    TiXmlElement& drive = FindOrMakeDrive(storage, ToUtf8(name));
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
  if (document.NoChildren()) document.LinkEndChild(new TiXmlDeclaration("", "", ""));
  TiXmlElement& root = Append(document, kRootName);
  root.SetAttribute("Delta", 0);
  return root;
}

// In the place of the first that is there.
void ReplaceCases(const std::string& text, XmlDocument& document) {
  if (document.aside.empty()) document.aside.emplace_back();
  document.aside.front() = text;
}

}  // namespace

void StorageFile::Locate() {
  const int error = qv::kelvo::CurrentDirectory(directory);
  directory = qv::kelvo::WithSeparator(directory);
  if (error == 0) LogPrintf(LogInfo, "Settings are kept in %s", PathOf(kFileName).c_str());
}

// Tells of a file that can't be read once, when that begins, and when it ends.
XmlFileState StorageFile::Load(XmlDocument& document) {
  document.nameAside = kCases;
  XmlFileState state = document.LoadFileWithBackup(platform, PathOf(kFileName));
  std::string cause = document.FirstErrorDesc();
  const std::string last = document.ErrorDesc();
  if (state == XmlFileState::Damaged) state = PutAside(cause, last);
  if (state != XmlFileState::Good) document = XmlDocument();
  document.nameAside = kCases;
  const bool unreadable = state == XmlFileState::Unreadable;
  if (unreadable && !readFailed) {
    if (last != cause) cause += "; its backup: " + last;
    LogPrintf(LogError, "%s is there but can't be read, nothing is saved until it can: %s",
              kFileName, cause.c_str());
  } else if (!unreadable && readFailed) {
    LogPrintf(LogInfo, "%s can be read again", kFileName);
  }
  readFailed = unreadable;
  return state;
}

// The backup goes aside, too, or the next start would take it for the settings.
XmlFileState StorageFile::PutAside(const std::string& cause, const std::string& backupCause) {
  qv::kelvo::DurableFiles& files = platform.durableFiles;
  using File = std::pair<const char*, const std::string&>;
  for (const auto& [name, why] : {File(kFileName, cause), File(kBackupName, backupCause)}) {
    std::string aside;
    int error = 0;
    for (int i = 1; i <= kMostAside; ++i) {
      aside = std::string(kFileName) + ".damaged" + std::to_string(i);
      error = files.Rename(PathOf(name), PathOf(aside));
      if (error == 0 || IsMissing(error)) break;
    }
    if (IsMissing(error)) continue;
    if (error != 0) return XmlFileState::Unreadable;
    LogPrintf(LogError, "%s is damaged and was put aside as %s: %s", name, aside.c_str(),
              why.c_str());
  }
  return XmlFileState::Missing;
}

bool StorageFile::Learn(XmlDocument& document) {
  if (Load(document) == XmlFileState::Unreadable) return false;
  known = true;
  TiXmlElement& root = RootOf(document);
  if (casesOwed) {
    document.aside.clear();
  } else if (!document.aside.empty()) {
    casesText = document.aside.front();
  }
  for (const TiXmlElement& storage : Children(changes, kStorage)) root.InsertEndChild(storage);
  changes.Clear();
  return true;
}

void StorageFile::Keep(const TiXmlElement& storage) {
  changes.InsertEndChild(storage);
}

std::string StorageFile::Save(const SavedTables& tables) {
  XmlDocument document;
  const XmlFileState state = known ? Load(document) : XmlFileState::Unreadable;
  TiXmlElement& root = RootOf(document);
  TiXmlElement& storage = FindOrMake(root, kStorage, "ID", KELVO_MODULE_ID);
  const std::string before = PrintXml(storage);
  WriteSettings(tables, storage);
  for (const auto& [input, schedule] : tables.lapse.timeLapseSchedules) {
    WriteSchedule(input, schedule, storage);
  }
  WriteDrives(tables.driveTable, storage);

  const bool casesMissing = casesOwed || state != XmlFileState::Good;
  if (casesMissing && !casesText.empty()) ReplaceCases(casesText, document);
  // A save waits for the disk, and most starts change nothing.
  const bool changed = casesMissing || PrintXml(storage) != before;
  settingsOwed = changed && (state == XmlFileState::Unreadable || !Write(document));

  for (std::size_t i = 0; i < std::size(kBroadcastOnly); ++i) {
    storage.SetAttribute(kBroadcastOnly[i], kBroadcastValues[i]);
  }
  return PrintXml(document);
}

void StorageFile::SaveCases(const std::string& cases) {
  if (cases == casesText && !casesOwed) return;
  casesText = cases;
  casesOwed = true;
  XmlDocument document;
  if (Load(document) != XmlFileState::Good) return;
  (void)RootOf(document);
  ReplaceCases(casesText, document);
  (void)Write(document);  // else the next save does
}

bool StorageFile::Write(XmlDocument& document) {
  const bool written = document.SaveFile(platform, PathOf(kFileName));
  if (!written && !writeFailed) {
    LogPrintf(LogError, "%s could not be saved: %s", kFileName, document.ErrorDesc());
  } else if (written && writeFailed) {
    LogPrintf(LogInfo, "%s is saved again", kFileName);
  }
  writeFailed = !written;
  if (written) casesOwed = false;
  return written;
}

}  // namespace qvsvr::kelvo
