#include "record/CodecConfig.h"
#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int32_t kDiskPrepId = 0x00370000;

void ReloadLapse(const CFileSystem& fileSystem, RecordStream& stream) {
  for (int slot = 0; slot < kVideoSlots; ++slot) {
    const int input = stream.EffectiveInput(slot);
    if (!IsInput(input)) continue;
    // Without one in the table the slot keeps the schedule it has.
    (void)fileSystem.Lapse().GetSchedule(
        qv::kelvo::MakeStreamID(qv::kelvo::ContextOf(stream.StreamId), stream.StreamId,
                                qv::kelvo::DeviceOf(stream.StreamId),
                                static_cast<std::uint32_t>(input)),
        stream.Slots[static_cast<std::size_t>(slot)].LapseSchedule);
  }
}

void Reopen(RecordStream& stream) {
  stream.CloseFile();
  stream.OpenFile();
}

void TakeAudio(RecordStream& own, RecordStream& parent) {
  ++own.ActiveChannels;
  own.AltId = (own.StreamId & ~0x1Fu) |
              static_cast<std::uint32_t>(AudioChannel(static_cast<int>(own.StreamId & 0x1Fu)));
  if (const int slot = parent.SlotOf(own.AltId); slot >= 0) {
    own.TakeSlotFrames(parent, slot, kOwnAudioSlot);
  }
  Reopen(own);
  if (--parent.ActiveChannels == 0) parent.CloseFile();
}

void GiveAudioBack(RecordStream& own, RecordStream& parent) {
  --own.ActiveChannels;
  own.AltId = 0;
  ++parent.ActiveChannels;
  Reopen(parent);
}

}  // namespace

void ApplyArchives(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("Archives") == nullptr) return;
  ++target.Services.Stats.iarc;
  for (const TiXmlElement& archives : Children(root, "Archives")) {
    if (!HasModuleId(archives, KELVO_MODULE_ARCHIVES)) continue;
    if (!target.Services.FileSystem.ApplyArchivesXml(archives)) continue;
    for (const auto& stream : target.Streams.All()) stream->CloseFile();
    target.Services.FileSystem.SaveStorage();
  }
}

void ApplyStorage(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("Storage") == nullptr) return;
  ++target.Services.Stats.istg;
  bool changed = false;
  for (const TiXmlElement& storage : Children(root, "Storage")) {
    std::int32_t id = 0;
    if (!ReadInt(storage, "ID", id) || id != kDiskPrepId) continue;
    if (target.Services.FileSystem.ApplyDiskPrep(storage)) changed = true;
  }
  if (!changed || target.Streams.All().empty()) return;
  for (const auto& stream : target.Streams.All()) stream->CloseFile();
  target.Services.FileSystem.SaveStorage();
}

void UpdateStreams(const ConfigTarget& target, bool closeFiles, bool reloadLapse) {
  for (const auto& stream : target.Streams.All()) {
    if (closeFiles) stream->CloseFile();
    stream->RefreshDefaultLapse();
    if (stream->DefaultLapse < 0) {
      for (ChannelSlot& slot : stream->Slots) slot.LapseSchedule.clear();
    }
    if (reloadLapse) ReloadLapse(target.Services.FileSystem, *stream);
  }
}

void PlaceAudio(const ConfigTarget& target, bool withVideo) {
  target.Streams.Changes();
  for (const auto& own : target.Streams.All()) {
    RecordStream* parent = own->ParentId != 0 ? target.Streams.Find(own->ParentId) : nullptr;
    if (parent == nullptr) continue;
    const bool hasAudio = own->Slots[std::size_t{kOwnAudioSlot}].Encoder >= 0;
    if (withVideo && hasAudio && own->AltId == 0) {
      TakeAudio(*own, *parent);
    } else if (!withVideo && own->AltId != 0) {
      GiveAudioBack(*own, *parent);
    }
  }
}

}  // namespace qvsvr::kelvo
