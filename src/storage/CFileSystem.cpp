#include "storage/CFileSystem.h"

#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "storage/RecordingRemoval.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

constexpr int kBytesToGBShift = 30;

}  // namespace

CFileSystem::CFileSystem(ICoreEventer& core, qv::kelvo::Platform& system)
    : FileSystemBase(system), eventSink(core) {}

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
  return true;
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
  std::string name =
      ChooseVolume(driveTable.drives, desiredGB,
                   [this, manager](const std::string& drive, const DriveRecord& record) {
                     return GetUsableSpace(*manager, drive, record);
                   });
  recordingState.Note(!name.empty());
  return name;
}

std::int64_t CFileSystem::GetUsableSpace(const IRecordManager& manager, const std::string& name,
                                         const DriveRecord& record) {
  std::uint32_t totalGB = 0;
  std::uint32_t freeGB = 0;
  if (record.disabled || record.alarmBits != 0 || !IsVolumeWritable(name) ||
      !GetDiskSpace(name, totalGB, freeGB)) {
    return 0;
  }
  return UsableGB(totalGB, freeGB, manager.ReservedGB(name), record.reservePercent);
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
  return force && RemoveRecording(path, volumeDepth);
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

bool CFileSystem::ApplyStorageXml(const TiXmlElement& parent, bool& drivesGiven,
                                  TiXmlElement& reply) {
  drivesGiven = false;
  for (const TiXmlElement& storage : Children(parent, "Storage")) {
    if (!HasModuleId(storage, KELVO_MODULE_ID)) continue;
    drivesGiven = ApplyStorageElement({driveTable, retention, lapse}, storage, NowSeconds(), reply);
  }
  PublishVolumes();
  return true;
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

void CFileSystem::ForgetDevice(std::uint32_t provider) {
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
