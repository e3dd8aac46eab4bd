#include "storage/CFileSystem.h"

#include <utility>

#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "storage/Cleanup.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint64_t kNsPerMicrosecond = 1000;

}  // namespace

CFileSystem::CFileSystem(ICoreEventer& core, qv::kelvo::Platform& system)
    : FileSystemBase(system),
      eventSink(core),
      meter(system.drives),
      settingsFile(system),
      protection(retention, bookmarkTable, system),
      catalogue(system, protection),
      roomMaker(system, catalogue),
      readWriteTest(system),
      disk(system,
           [](const std::string& root, int error) {
             if (error != 0) {
               LogPrintf(LogError, "Write-back to %s fails: error %d", root.c_str(), error);
             } else {
               LogPrintf(LogInfo, "Write-back to %s works again", root.c_str());
             }
           }),
      sweeper(system, SweeperOwner()),
      healer(system, disk) {}

CFileSystem::~CFileSystem() = default;

bool CFileSystem::LoadStorage() {
  settingsFile.Locate();
  FindDrives();
  return !volumes.Drives().drives.empty();
}

void CFileSystem::FindDrives() {
  std::vector<std::string> names;
  std::string systemDirectory;
  drivesListed = qv::kelvo::ScanLocalDrives(platform, names, systemDirectory);
  VolumeTable::Change(volumes).drives.Fill(names, systemDirectory);
  if (volumes.Drives().drives.empty()) return;
  LogFoundDrives();
  // Without the settings this tells the drives.
  if (!LearnSettings()) SaveStorage();
  HealNewDrives();
}

void CFileSystem::HealRecordings() {
  heals = true;
  HealNewDrives();
}

void CFileSystem::HealNewDrives() {
  if (heals) healer.Begin(volumes.ListUsable());
}

// Done once, when there is a drive and the file can be read: something else may have it just then.
bool CFileSystem::LearnSettings(bool save) {
  if (settingsFile.Known()) return true;
  XmlDocument document;
  if (!settingsFile.Learn(document)) return false;
  const TiXmlElement& root = *document.FirstChildElement(kRootName);
  TiXmlElement reply("Storage");
  bool drivesGiven = false;
  ApplyStorageXml(root, drivesGiven, reply);
  if (!document.aside.empty()) ApplyCasesXml(document.aside.front(), true);
  if (save) SaveStorage();
  if (reply.FirstChild() != nullptr) SendStorageXml(reply);
  return true;
}

// Once a minute, before the report: so drives that couldn't be listed at the start, and a settings
// file that couldn't be read or written, need no restart.
void CFileSystem::CatchUp() {
  std::vector<std::string> names;
  if (volumes.Drives().drives.empty() && !drivesListed && platform.drives.FixedDrives(names) == 0) {
    FindDrives();
  }
  if (volumes.Drives().drives.empty()) return;
  if (LearnSettings() && settingsFile.Owing()) (void)settingsFile.Save(Tables());
}

void CFileSystem::LogFoundDrives() {
  for (const auto& [name, record] : volumes.Drives().drives) {
    std::uint32_t totalGB = 0;
    std::uint32_t freeGB = 0;
    if (meter.Measure(name, totalGB, freeGB)) {
      LogPrintf(LogInfo, "Drive %s total %dGB free %dGB", name.c_str(), totalGB, freeGB);
    }
  }
}

void CFileSystem::GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                             const qv::kelvo::ArchiveFilter* filter) {
  volumes.ListVolumes(list, flags, filter);
}

void CFileSystem::GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                             const qv::kelvo::ArchiveFilter* filter) {
  volumes.ListTargets(list, flags, filter);
}

std::string CFileSystem::GetRecordVolume(const IRecordManager* manager, std::int64_t desiredGB) {
  if (manager == nullptr || manager->IsStopping() || desiredGB < 1) return {};
  searching = false;
  roomMaker.ForgetOldFailures();
  std::string name = ChooseVolume(volumes.Drives().drives, desiredGB,
                                  [&](const std::string& drive, const DriveRecord& record) {
                                    return GetUsableSpace(*manager, drive, record);
                                  });
  // Nothing is deleted before it is known what is protected.
  if (name.empty() && settingsFile.Known()) {
    name = MakeRoom(*manager, desiredGB);
    searching = roomMaker.Undecided();
    if (searching) return {};
  }
  const bool before = recordingState.recordingNotPossible;
  recordingState.Note(!name.empty());
  if (recordingState.recordingNotPossible != before) ReportStatus(false);
  return name;
}

std::string CFileSystem::GetVolumeToReserve(const IRecordManager* manager, std::int64_t desiredGB) {
  struct Patience {
    explicit Patience(bool& flag) : patient(flag) { patient = true; }
    ~Patience() { patient = false; }
    bool& patient;
  };
  const Patience whileAsking(patient);
  return GetRecordVolume(manager, desiredGB);
}

// The catalogue is told of all usable drives, the request of those without a fault: a faulty one
// keeps its place in the order of time, but nothing on it is deleted for room that couldn't be
// used.
std::string CFileSystem::MakeRoom(const IRecordManager& manager, std::int64_t desiredGB) {
  catalogue.SetVolumes(volumes.ListUsable());
  std::string name = roomMaker.MakeRoom({.manager = manager,
                                         .drives = volumes.ListRecordable(),
                                         .desiredGB = desiredGB,
                                         .usableGB =
                                             [this, &manager](const std::string& drive) {
                                               const auto& record =
                                                   volumes.Drives().drives.at(drive);
                                               return GetUsableSpace(manager, drive, record);
                                             },
                                         .patient = patient});
  const std::uint32_t skips = roomMaker.ProtectedSkips();
  if (!roomMaker.Undecided() && !recordingState.recordingNotPossible &&
      (skips != 0 || roomMaker.Failures() != 0)) {
    LogPrintf(LogTrace, "GRV skipped %u protected files and %u rm failures while making room.",
              skips, roomMaker.Failures());
  }
  return name;
}

std::int64_t CFileSystem::GetUsableSpace(const IRecordManager& manager, const std::string& name,
                                         const DriveRecord& record) {
  std::uint32_t totalGB = 0;
  std::uint32_t freeGB = 0;
  if (record.disabled || record.alarmBits != 0 || !volumes.Network().IsVolumeWritable(name) ||
      !meter.Measure(name, totalGB, freeGB)) {
    return 0;
  }
  return UsableGB(totalGB, freeGB, manager.ReservedGB(name), record.reservePercent);
}

bool CFileSystem::RemoveFile(const std::string& path, bool force) {
  const std::string root = volumes.DriveOf(path);
  if (!force && protection.CheckRemovable(path, root) != Removable::Yes) return false;
  return RemoveRecording(path, root);
}

bool CFileSystem::ApplyDiskPrep(const TiXmlElement& storage) {
  bool added = false;
  for (const std::string& name : PreparedDrives(storage)) {
    if (!VolumeTable::Change(volumes).AddDrive(name)) continue;
    LogPrintf(LogInfo, "Drive %s discovered via new prep", name.c_str());
    added = true;
  }
  if (added) {
    LearnSettings();
    HealNewDrives();
  }
  return added;
}

bool CFileSystem::ApplyArchivesXml(const TiXmlElement& archives) {
  bool changed = false;
  {
    VolumeTable::Change change(volumes);
    change.network.ReplaceArchives(archives, platform);
    changed = FollowNetworkDrives(change, ReadNetworkDrives(archives));
  }
  if (changed) {
    LearnSettings();
    HealNewDrives();
  }
  return changed;
}

// A drive that the table has by another way isn't new, but goes with its target all the same.
bool CFileSystem::FollowNetworkDrives(VolumeTable::Change& change, NetworkDrives found) {
  bool changed = false;
  for (const auto& [name, number] : change.network.iscsiDrives) {
    if (found.contains(name) || change.drives.drives.erase(name) == 0) continue;
    LogPrintf(LogInfo, "Drive %s (ID %d) disappeared via iSCSI.", name.c_str(), number);
    changed = true;
    TiXmlElement storage("Storage");
    storage.InsertEndChild(DriveNotFound(name, true, NowSeconds()));
    SendStorageXml(storage);
  }
  for (const auto& [name, number] : found) {
    if (change.network.iscsiDrives.contains(name) || !change.AddDrive(name)) continue;
    LogPrintf(LogInfo, "Drive %s (ID %d) discovered via iSCSI.", name.c_str(), number);
    changed = true;
  }
  change.network.iscsiDrives = std::move(found);
  return changed;
}

void CFileSystem::ApplyArchiveStatus(const TiXmlElement& archives) {
  VolumeTable::Change(volumes).network.ApplyStatus(archives);
}

bool CFileSystem::ApplyStorageXml(const TiXmlElement& parent, bool& drivesGiven,
                                  TiXmlElement& reply) {
  drivesGiven = false;
  const bool known = LearnSettings(false);
  for (const TiXmlElement& storage : Children(parent, "Storage")) {
    if (!HasModuleId(storage, KELVO_MODULE_ID)) continue;
    if (!known) settingsFile.Keep(storage);
    drivesGiven = ApplyStorageElement({VolumeTable::Change(volumes).drives, retention, lapse},
                                      storage, NowSeconds(), reply);
    cleanupRemoves = retention.fsCleanupRemoves;
    TellStatus(true);
  }
  return true;
}

void CFileSystem::ApplyCasesXml(const std::string& cases, bool fromFile) {
  if (!fromFile) settingsFile.SaveCases(cases);
  bookmarkTable.Replace(ReadCases(cases, bookmarkTable.bookmarks));
}

void CFileSystem::SaveStorage() {
  eventSink.SendXmlEvent(settingsFile.Save(Tables()), KELVO_CLASS_BROADCAST);
}

void CFileSystem::ReportStatus(bool full) {
  if (full) CatchUp();
  TellStatus(full);
}

void CFileSystem::TellStatus(bool full) {
  if (!full) return SendReport(nullptr);
  VolumeTable::Change change(volumes);
  statusReport.MeasureDrives(
      change.drives,
      {.space = [this](const std::string& name, std::uint32_t& total,
                       std::uint32_t& free) { return meter.Measure(name, total, free); },
       .readWrite = [this](const std::string& name) { return readWriteTest.Run(name); }});
  reportOwed = true;
  ContinueReport();
  if (reportOwed) SendReport(nullptr);
}

// The age of the oldest recording takes a look into the trees, which is done in slices: the report
// goes out when it is known.
void CFileSystem::ContinueReport() {
  if (!reportOwed) return;
  StatusReport::Measures measures;
  if (!FindOldest(measures.oldest)) return;
  reportOwed = false;
  measures.recordingMbps = recordingMbps;
  LogPrintf(LogInfo, "Recording @ %s Mbps", FormatFixed(recordingMbps, 2).c_str());
  measures.wantedAge = retention.contentAge;
  measures.lastRoomMakingTime = roomMaker.LastTime();
  measures.roomMakingCount = roomMaker.Count();
  SendReport(&measures);
  if (statusReport.ContentAgeSettled()) roomMaker.Reset();
}

void CFileSystem::SendReport(const StatusReport::Measures* measures) {
  VolumeTable::Change change(volumes);
  SendStorageXml(statusReport.Build(change.drives, recordingState.recordingNotPossible,
                                    NowSeconds(), measures));
}

bool CFileSystem::FindOldest(std::int64_t& seconds) {
  const std::int64_t begin = platform.clock.SteadyNs();
  catalogue.SetVolumes(volumes.ListUsable());
  WorkLimit limit(
      platform.clock, [this] { return eventSink.IsStopping(); }, false);
  const auto found = catalogue.Oldest({.roots = volumes.ListUsable(), .except = {}}, limit);
  scanNs += static_cast<std::uint64_t>(platform.clock.SteadyNs() - begin);
  if (found.outcome == Catalogue::Outcome::Unknown) return false;
  scanTimes.Note(std::exchange(scanNs, 0) / kNsPerMicrosecond);
  seconds = found.outcome == Catalogue::Outcome::Found ? found.time : -1;
  return true;
}

bool CFileSystem::KickSweeper(bool stop) {
  if (stop) return sweeper.Stop();
  if (!settingsFile.Known()) return false;
  if (sweeper.Running()) {
    LogPrintf(LogTrace, "Sweeper - still running...");
    return true;
  }
  sweeper.Start({.volumes = volumes.ListUsable(),
                 .rules = retention.cameraExpiration,
                 .bookmarks = bookmarkTable.bookmarks,
                 .globalDays = retention.expirationDays});
  return false;
}

// Called on the sweeper's thread: an event, an atomic, and a part for any thread.
Sweeper::Owner CFileSystem::SweeperOwner() {
  return {.sendSizes =
              [this](const Bookmarks& table) {
                const TiXmlElement cases = BookmarkSizes(table);
                if (cases.FirstChild() != nullptr) SendStorageXml(cases);
              },
          .cleanupRemoves = [this] { return cleanupRemoves.load(); },
          .isWritten = [this](const std::string& media) { return disk.IsOpen(media); }};
}

void CFileSystem::SendStorageXml(const TiXmlElement& element) {
  TiXmlDocument document;
  TiXmlNode* copy = BeginXml(document)->InsertEndChild(element);
  copy->ToElement()->SetAttribute("ID", static_cast<int>(KELVO_MODULE_ID));
  eventSink.SendXmlEvent(PrintXml(document), KELVO_CLASS_EVENT);
}

void CFileSystem::ForgetDevice(std::uint32_t provider) {
  sweeper.Stop();
  retention.ForgetDevice(provider);
}

void CFileSystem::SetRecordingMbps(double value) {
  recordingMbps = value;
}

std::int64_t CFileSystem::NowSeconds() {
  return platform.clock.NowMs() / 1000;
}

}  // namespace qvsvr::kelvo
