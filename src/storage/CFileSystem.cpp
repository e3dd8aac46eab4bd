#include "storage/CFileSystem.h"

#include <cstdlib>

#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "storage/RecordingRemoval.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

constexpr int kBytesToGBShift = 30;
constexpr std::uint64_t kNsPerMicrosecond = 1000;

}  // namespace

CFileSystem::CFileSystem(ICoreEventer& core, qv::kelvo::Platform& system)
    : FileSystemBase(system),
      eventSink(core),
      settingsFile(system),
      protection(retention, bookmarkTable, system, volumeDepth),
      roomMaker(Walks()),
      readWriteTest(system.mediaFiles),
      sweeper(system, SweeperOwner()) {}

CFileSystem::~CFileSystem() = default;

bool CFileSystem::LoadStorage() {
  std::vector<std::string> names;
  std::string systemDirectory;
  qv::kelvo::ScanLocalDrives(platform, names, systemDirectory);
  driveTable.Fill(names, systemDirectory);
  PublishVolumes();
  if (driveTable.drives.empty()) return false;
  volumeDepth = CountPathParts(driveTable.drives.begin()->first);
  LogFoundDrives();
  LoadSettings();
  return true;
}

void CFileSystem::LoadSettings() {
  TiXmlElement reply("Storage");
  XmlDocument document;
  const bool loaded = settingsFile.Load(document);
  if (const TiXmlElement* root = document.FirstChildElement(kRootName); loaded && root != nullptr) {
    bool drivesGiven = false;
    ApplyStorageXml(*root, drivesGiven, reply);
    const TiXmlElement* cases = root->FirstChildElement("Cases");
    if (cases != nullptr) ApplyCasesXml(*cases, true);
  }
  SaveStorage();
  if (reply.FirstChild() != nullptr) SendStorageXml(reply);
}

void CFileSystem::LogFoundDrives() {
  for (const auto& [name, record] : driveTable.drives) {
    std::uint32_t totalGB = 0;
    std::uint32_t freeGB = 0;
    if (GetDiskSpace(name, totalGB, freeGB)) {
      LogPrintf(LogInfo, "Drive %s total %dGB free %dGB", name.c_str(), totalGB, freeGB);
    }
  }
}

void CFileSystem::GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                             const qv::kelvo::ArchiveFilter* filter) {
  volumes.Current()->ListVolumes(list, flags, filter);
}

void CFileSystem::GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                             const qv::kelvo::ArchiveFilter* filter) {
  volumes.Current()->ListTargets(list, flags, filter);
}

void CFileSystem::PublishVolumes() {
  volumes.Publish(VolumeSnapshot(ListUsableVolumes(), network));
}

std::string CFileSystem::GetRecordVolume(const IRecordManager* manager, std::int64_t desiredGB) {
  if (manager == nullptr || manager->IsStopping() || desiredGB < 1) return {};
  roomMaker.ForgetOldFailures();
  // All that could be deleted would be deleted in vain for more than the largest drive can hold.
  bool possible = false;
  std::string name = ChooseVolume(driveTable.drives, desiredGB,
                                  [&](const std::string& drive, const DriveRecord& record) {
                                    const Room room = MeasureRoom(*manager, drive, record);
                                    possible |= room.mostGB >= desiredGB;
                                    return room.usableGB;
                                  });
  if (name.empty()) {
    name = MakeRoom(*manager, desiredGB, possible);
    if (name.empty() && roomMaker.Undecided()) return {};
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

std::string CFileSystem::MakeRoom(const IRecordManager& manager, std::int64_t desiredGB,
                                  bool possible) {
  std::string name =
      roomMaker.MakeRoom({.manager = manager,
                          .drives = driveTable.drives,
                          .volumes = ListRecordableVolumes(),
                          .desiredGB = desiredGB,
                          .usableGB =
                              [this, &manager](const std::string& drive) {
                                return GetUsableSpace(manager, drive, driveTable.drives.at(drive));
                              },
                          .possible = possible,
                          .patient = patient});
  if (name.empty() && roomMaker.Undecided()) return name;
  const std::uint32_t skips = roomMaker.ProtectedSkips();
  if (!recordingState.recordingNotPossible && (skips != 0 || roomMaker.Failures() != 0)) {
    LogPrintf(LogTrace, "GRV skipped %u protected files and %u rm failures while making room.",
              skips, roomMaker.Failures());
  }
  return name;
}

std::int64_t CFileSystem::GetUsableSpace(const IRecordManager& manager, const std::string& name,
                                         const DriveRecord& record) {
  return MeasureRoom(manager, name, record).usableGB;
}

CFileSystem::Room CFileSystem::MeasureRoom(const IRecordManager& manager, const std::string& name,
                                           const DriveRecord& record) {
  std::uint32_t totalGB = 0;
  std::uint32_t freeGB = 0;
  if (record.disabled || record.alarmBits != 0 || !IsVolumeWritable(name) ||
      !GetDiskSpace(name, totalGB, freeGB)) {
    return {};
  }
  const std::int64_t reservedGB = manager.ReservedGB(name);
  return {UsableGB(totalGB, freeGB, reservedGB, record.reservePercent),
          UsableGB(totalGB, totalGB, reservedGB, record.reservePercent)};
}

bool CFileSystem::GetDiskSpace(const std::string& name, std::uint32_t& totalGB,
                               std::uint32_t& freeGB) {
  qv::kelvo::DriveSpace space;
  const std::string error = platform.drives.Space(name, space);
  if (!error.empty()) {
    LogPrintf(LogError, "GDS - %s, %s", name.c_str(), error.c_str());
    return false;
  }
  totalGB = static_cast<std::uint32_t>(space.capacity >> kBytesToGBShift);
  freeGB = static_cast<std::uint32_t>(space.available >> kBytesToGBShift);
  return true;
}

bool CFileSystem::RemoveFile(const std::string& path, bool force) {
  if (!force && protection.CheckRemovable(path) != Removable::Yes) return false;
  return RemoveRecording(path, volumeDepth);
}

bool CFileSystem::IsVolumeWritable(const std::string& name) const {
  return network.IsVolumeWritable(name);
}

std::vector<std::string> CFileSystem::ListVolumes(std::uint32_t alarmMask) const {
  std::vector<std::string> names;
  for (const auto& [name, record] : driveTable.drives) {
    if (!record.disabled && (record.alarmBits & alarmMask) == 0 && IsVolumeWritable(name)) {
      names.push_back(name);
    }
  }
  return names;
}

std::vector<std::string> CFileSystem::ListUsableVolumes() const {
  return ListVolumes(0);
}

std::vector<std::string> CFileSystem::ListRecordableVolumes() const {
  return ListVolumes(~0u);
}

bool CFileSystem::AddDrive(const std::string& name) {
  if (!driveTable.drives.try_emplace(name).second) return false;
  // Without a fixed drive at open the first one to come sets the depth.
  if (driveTable.drives.size() == 1) volumeDepth = CountPathParts(name);
  return true;
}

bool CFileSystem::ApplyDiskPrep(const TiXmlElement& storage) {
  bool added = false;
  for (const std::string& name : PreparedDrives(storage)) {
    if (!AddDrive(name)) continue;
    LogPrintf(LogInfo, "Drive %s discovered via new prep", name.c_str());
    added = true;
  }
  if (added) PublishVolumes();
  return added;
}

bool CFileSystem::ApplyArchivesXml(const TiXmlElement& archives) {
  network.ReplaceArchives(archives, platform.clock);
  const bool changed = FollowNetworkDrives(ReadNetworkDrives(archives));
  PublishVolumes();
  return changed;
}

bool CFileSystem::FollowNetworkDrives(NetworkDrives found) {
  bool changed = false;
  for (const auto& [name, number] : network.iscsiDrives) {
    if (found.contains(name) || driveTable.drives.erase(name) == 0) continue;
    LogPrintf(LogInfo, "Drive %s (ID %d) disappeared via iSCSI.", name.c_str(), number);
    changed = true;
    TiXmlElement storage("Storage");
    storage.InsertEndChild(DriveNotFound(name, true, NowSeconds()));
    SendStorageXml(storage);
  }
  for (const auto& [name, number] : found) {
    if (network.iscsiDrives.contains(name) || !AddDrive(name)) continue;
    LogPrintf(LogInfo, "Drive %s (ID %d) discovered via iSCSI.", name.c_str(), number);
    changed = true;
  }
  network.iscsiDrives = std::move(found);
  return changed;
}

void CFileSystem::ApplyArchiveStatus(const TiXmlElement& archives) {
  network.ApplyStatus(archives);
  PublishVolumes();
}

bool CFileSystem::ApplyStorageXml(const TiXmlElement& parent, bool& drivesGiven,
                                  TiXmlElement& reply) {
  drivesGiven = false;
  for (const TiXmlElement& storage : Children(parent, "Storage")) {
    if (!HasModuleId(storage, KELVO_MODULE_ID)) continue;
    drivesGiven = ApplyStorageElement(Tables(), storage, NowSeconds(), reply);
    cleanupRemoves = retention.fsCleanupRemoves;
    PublishVolumes();
    ReportStatus(true);
  }
  return true;
}

void CFileSystem::ApplyCasesXml(const TiXmlElement& cases, bool fromFile) {
  if (!fromFile) settingsFile.SaveElement(cases);
  bookmarkTable.Replace(ReadCases(cases, bookmarkTable.bookmarks));
}

void CFileSystem::SaveStorage() {
  eventSink.SendXmlEvent(settingsFile.Save(Tables()), KELVO_CLASS_BROADCAST);
}

void CFileSystem::ReportStatus(bool full) {
  StatusReport::Measures measures;
  if (full) {
    measures.space = [this](const std::string& name, std::uint32_t& total, std::uint32_t& free) {
      return GetDiskSpace(name, total, free);
    };
    measures.readWriteTest = [this](const std::string& name) { return readWriteTest.Run(name); };
    measures.oldest = OldestRemovable();
    measures.recordingMbps = recordingMbps;
    LogPrintf(LogInfo, "Recording @ %0.2f Mbps", recordingMbps);
    measures.wantedAge = retention.contentAge;
    measures.lastRoomMakingTime = roomMaker.LastTime();
    measures.roomMakingCount = roomMaker.Count();
  }
  const TiXmlElement storage = statusReport.Build(driveTable, recordingState.recordingNotPossible,
                                                  NowSeconds(), full ? &measures : nullptr);
  if (statusReport.ContentAgeSettled()) roomMaker.Reset();
  SendStorageXml(storage);
}

std::int64_t CFileSystem::OldestRemovable() {
  const std::int64_t begin = platform.clock.SteadyNs();
  if (!oldestWalker || !oldestWalker->Paused()) oldestWalker.emplace(Walks());
  oldestWalker->SetVolumes(ListUsableVolumes());
  oldestWalker->Restart();
  const auto found = oldestWalker->NextRemovableFile(
      {[this] { return eventSink.IsStopping(); }, begin + RoomMaker::kSearchNs});
  scanTimes.Note(static_cast<std::uint64_t>(platform.clock.SteadyNs() - begin) / kNsPerMicrosecond);
  if (!oldestWalker->Paused()) oldestRemovable = found ? found->time : -1;
  return oldestRemovable;
}

bool CFileSystem::KickSweeper(bool stop) {
  if (stop) return sweeper.Stop();
  if (sweeper.Running()) {
    LogPrintf(LogTrace, "Sweeper - still running...");
    return true;
  }
  sweeper.Start({.volumes = ListUsableVolumes(),
                 .rules = retention.cameraExpiration,
                 .bookmarks = bookmarkTable.bookmarks,
                 .globalDays = retention.expirationDays},
                volumeDepth);
  return false;
}

Sweeper::Owner CFileSystem::SweeperOwner() {
  return {.sendSizes =
              [this](const Bookmarks& table) {
                const TiXmlElement cases = BookmarkSizes(table);
                if (cases.FirstChild() != nullptr) SendStorageXml(cases);
              },
          .cleanupRemoves = [this] { return cleanupRemoves.load(); }};
}

void CFileSystem::SendStorageXml(const TiXmlElement& element) {
  TiXmlDocument document;
  TiXmlNode* copy = BeginXml(document)->InsertEndChild(element);
  copy->ToElement()->SetAttribute("ID", static_cast<int>(KELVO_MODULE_ID));
  eventSink.SendXmlEvent(PrintXml(document), KELVO_CLASS_EVENT);
}

bool CFileSystem::GetTimeLapseSchedule(std::uint32_t context, std::uint32_t provider,
                                       std::uint32_t device, std::uint32_t input,
                                       Schedule& list) const {
  const auto entry =
      lapse.timeLapseSchedules.find(qv::kelvo::MakeStreamID(context, provider, device, input));
  if (entry == lapse.timeLapseSchedules.end()) return false;
  list = entry->second;
  return true;
}

void CFileSystem::SetCameraExpiration(std::uint32_t context, std::uint32_t provider,
                                      std::uint32_t device, std::uint32_t input, int type,
                                      int days) {
  retention.SetCameraExpiration(qv::kelvo::MakeStreamID(context, provider, device, input), type,
                                days);
}

std::int32_t CFileSystem::GetCameraExpirationDays(std::uint32_t context, std::uint32_t provider,
                                                  std::uint32_t device, std::uint32_t input) const {
  const auto rule =
      retention.cameraExpiration.find(qv::kelvo::MakeStreamID(context, provider, device, input));
  return rule == retention.cameraExpiration.end() ? 0 : std::abs(rule->second);
}

void CFileSystem::ForgetDevice(std::uint32_t provider) {
  sweeper.Stop();
  retention.ForgetDevice(provider);
}

void CFileSystem::AddKnownDevice(std::uint32_t provider) {
  retention.AddKnownDevice(provider);
}

bool CFileSystem::ApplySystemState(const TiXmlElement& root) {
  return licence.Apply(root);
}

std::int32_t CFileSystem::TimeLapse() const {
  return lapse.timeLapse;
}

bool CFileSystem::PreserveExpirationAudioWithVideo() const {
  return retention.preserveExpirationAudioWithVideo;
}

std::uint32_t CFileSystem::PreserveAudioChanges() const {
  return retention.preserveAudioChanges;
}

void CFileSystem::SetRecordingMbps(double value) {
  recordingMbps = value;
}

std::int64_t CFileSystem::NowSeconds() {
  return platform.clock.NowMs() / 1000;
}

}  // namespace qvsvr::kelvo
