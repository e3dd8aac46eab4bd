#include "record/DeviceConfig.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "host/DeviceNest.h"
#include "host/Log.h"
#include "media/StreamId.h"
#include "record/CodecConfig.h"
#include "record/DeviceReader.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

// Configures one Device or Context element. `videoInputs` counts over the whole Device.
void ApplyContext(const ConfigTarget& target, const DeviceAddress& address,
                  const TiXmlElement& element, int& videoInputs, SeenDevices& seen) {
  DeviceInputs inputs;
  const bool anyVideo = ReadVideoInputs(element, inputs);
  videoInputs += inputs.VideoCount;
  for (const InputExpiration& expiration : inputs.Expirations) {
    target.Services.FileSystem.Retention().SetCameraExpiration(
        qv::kelvo::MakeStreamID(static_cast<std::uint32_t>(address.Context), address.Id,
                                static_cast<std::uint32_t>(address.Device),
                                static_cast<std::uint32_t>(expiration.Input)),
        expiration.Type, expiration.Days);
  }
  if (!anyVideo && address.Context != 0) return;
  ReadAudioInputs(element, inputs);
  CodecConfig config(target, address, inputs, videoInputs, seen);
  for (const TiXmlElement& codec : Children(element, "Codec")) config.Apply(codec);
}

void ApplyDevice(const ConfigTarget& target, std::uint32_t id, std::int32_t number,
                 const TiXmlElement& device, SeenDevices& seen) {
  std::int32_t enabled = 0;
  if (ReadInt(device, "Enabled", enabled) && enabled == 0) return;
  int videoInputs = 0;
  ForEachContext(device, [&](std::int32_t context, const TiXmlElement& element) {
    if (!IsContext(context, element)) return;
    ApplyContext(target, {id, number, context}, element, videoInputs, seen);
  });
}

// Keys of the video inputs, which PTZ messages name without a context.
std::set<std::uint32_t> MovableInputs(const ProviderTuples& tuples) {
  std::set<std::uint32_t> keys;
  for (const SProviderTuple& tuple : tuples) {
    if (IsAudioProvider(static_cast<std::uint32_t>(tuple.Provider))) continue;
    keys.insert(
        DeviceAddress{tuple.Id, tuple.Device, 0}.With(static_cast<std::uint32_t>(tuple.Input)));
  }
  return keys;
}

}  // namespace

void ApplyDevices(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("Devices") == nullptr) return;
  ++target.Services.Stats.idev;
  target.Streams.Changes();
  ForEachProvider(root, [&](std::uint32_t id, const TiXmlElement& devices) {
    SeenDevices seen;
    target.Services.FileSystem.ForgetDevice(id);
    ForEachNumbered(devices, "Device", [&](std::int32_t number, const TiXmlElement& device) {
      ApplyDevice(target, id, number, device, seen);
    });
    target.Services.FileSystem.Retention().AddKnownDevice(id);
    RemoveStaleStreams(target, id, seen.Streams, seen.Tuples);
  });
}

void RemoveStaleStreams(const ConfigTarget& target, std::uint32_t id,
                        const std::set<std::uint32_t>& seenStreams,
                        const ProviderTuples& seenTuples) {
  std::vector<RecordStream*> stale;
  for (const auto& stream : target.Streams.All()) {
    if (qv::kelvo::ProviderOf(stream->StreamId) == (id & qv::kelvo::kProviderMask) &&
        seenStreams.count(stream->StreamId) == 0) {
      stale.push_back(stream.get());
    }
  }
  for (RecordStream* stream : stale) {
    const auto streamId = static_cast<unsigned long>(stream->StreamId);
    stream->CloseFile();
    target.Streams.Remove(stream);
    LogPrintf(LogInfo, "deleted record stream %08lX", streamId);
  }
  target.Ptz.Keep(id, MovableInputs(seenTuples));
  target.Services.Alarms.RemoveProviders(id, seenTuples);
  target.Services.Alarms.AddProviders(seenTuples);
}

namespace {

constexpr std::int32_t kEventsId = 0x000A0000;

// Keeps `seconds` for each input that the Devices of an action name; the longest of several
// actions.
void LinkAction(PreAlarmTable& table, const TiXmlElement& action, std::int32_t seconds) {
  ForEachDevice(action, [&](std::uint32_t id, std::int32_t device, const TiXmlElement& found) {
    ForEachContext(found, [&](std::int32_t context, const TiXmlElement& element) {
      if (!IsContext(context, element)) return;
      const DeviceAddress address{id, device, context};
      const auto link = [&](const char* kind, std::uint32_t offset) {
        ForEachInput(element, kind, [&](std::int32_t input, const TiXmlElement&) {
          if (!IsInput(input)) return;
          std::int32_t& stored = table[address.With(static_cast<std::uint32_t>(input) + offset)];
          stored = std::max(stored, seconds);
        });
      };
      link("Video", 0);
      link("Audio", kAudioKey);
    });
  });
}

std::int32_t PreAlarmOf(const PreAlarmTable& table, const RecordStream& stream, int slotIndex) {
  if (stream.Slots[static_cast<std::size_t>(slotIndex)].Encoder < 0) return 0;
  const int input = stream.EffectiveInput(slotIndex);
  if (!IsInput(input)) return 0;
  const std::uint32_t offset = slotIndex < kVideoSlots ? 0 : kAudioKey;
  const auto found =
      table.find((stream.StreamId & ~0xFFu) | (static_cast<std::uint32_t>(input) + offset));
  return found != table.end() ? found->second : 0;
}

}  // namespace

// The table outlives the message: streams that are configured later take their times from it. Each
// Events element makes it anew.
void ApplyEvents(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("Events") == nullptr) return;
  ++target.Services.Stats.ievt;
  bool any = false;
  for (const TiXmlElement& events : Children(root, "Events")) {
    std::int32_t id = 0;
    if (!ReadInt(events, "ID", id) || id != kEventsId) continue;
    any = true;
    target.PreAlarmSeconds.clear();
    for (const TiXmlElement& event : Children(events, "Event")) {
      std::int32_t seconds = 0;
      if (!ReadInt(event, "PreAlarm", seconds)) continue;
      for (const TiXmlElement& action : Children(event, "Action")) {
        LinkAction(target.PreAlarmSeconds, action, seconds);
      }
    }
  }
  if (!any) return;
  std::int32_t longest = 0;
  for (const auto& [input, seconds] : target.PreAlarmSeconds) longest = std::max(longest, seconds);
  target.Services.FileSystem.SetLongestPreAlarm(longest);
  for (const auto& stream : target.Streams.All()) {
    for (int slot = 0; slot < kSlots; ++slot) {
      stream->Slots[static_cast<std::size_t>(slot)].PreAlarm =
          PreAlarmOf(target.PreAlarmSeconds, *stream, slot);
    }
  }
}

namespace {

constexpr std::uint8_t kGroupA = 1, kGroupB = 2, kGroupC = 4;

// What a key begins or ends.
struct Opcode {
  int number;
  bool begins;
  std::uint8_t group;
};
constexpr Opcode kOpcodes[] = {
    {17, true, kGroupC}, {18, true, kGroupC}, {31, false, kGroupC},
    {33, true, kGroupA}, {34, true, kGroupA}, {32, false, kGroupA},
    {52, true, kGroupB}, {53, true, kGroupB}, {54, false, kGroupB},
};

}  // namespace

void PtzInputs::Apply(std::uint32_t inputKey, int opcode) {
  const auto* known = std::ranges::find(kOpcodes, opcode, &Opcode::number);
  if (known == std::end(kOpcodes)) return;
  if (known->begins) {
    Moving[inputKey] |= known->group;
    return;
  }
  const auto entry = Moving.find(inputKey);
  if (entry == Moving.end()) return;
  entry->second &= static_cast<std::uint8_t>(~known->group);
  if (entry->second == 0) Moving.erase(entry);
}

void PtzInputs::Keep(std::uint32_t id, const std::set<std::uint32_t>& configured) {
  std::erase_if(Moving, [&](const auto& entry) {
    return qv::kelvo::ProviderOf(entry.first) == qv::kelvo::ProviderOf(id) &&
           !configured.contains(entry.first);
  });
}

void ApplyPtz(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("PTZ") == nullptr) return;
  ++target.Services.Stats.eptz;
  for (const TiXmlElement& message : Children(root, "PTZ")) {
    ForEachDevice(message, [&](std::uint32_t id, std::int32_t number, const TiXmlElement& device) {
      ForEachInput(device, "Video", [&](std::int32_t input, const TiXmlElement& element) {
        std::int32_t opcode = 0;
        if (!IsInput(input) || !ReadInt(element, "Opcode", opcode)) return;
        const DeviceAddress address{id, number, 0};
        target.Ptz.Apply(address.With(static_cast<std::uint32_t>(input)), opcode);
      });
    });
  }
}

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

// A file's head tells its channels, so that a stream that gets or loses one begins another file.
void Reopen(RecordStream& stream) {
  stream.CloseFile();
  stream.OpenFile();
}

void TakeAudio(RecordStream& own, RecordStream& parent) {
  own.ActiveChannels.set(kOwnAudioSlot);
  own.AltId = (own.StreamId & ~0x1Fu) |
              static_cast<std::uint32_t>(AudioChannel(static_cast<int>(own.StreamId & 0x1Fu)));
  if (const int slot = parent.SlotOf(own.AltId); slot >= 0) {
    own.TakeSlotFrames(parent, slot, kOwnAudioSlot);
    parent.ActiveChannels.reset(static_cast<std::size_t>(slot));
  }
  Reopen(own);
  if (parent.ActiveChannels.none()) parent.CloseFile();
}

void GiveAudioBack(RecordStream& own, RecordStream& parent) {
  own.ActiveChannels.reset(kOwnAudioSlot);
  if (const int slot = parent.SlotOf(own.AltId); slot >= 0) {
    parent.ActiveChannels.set(static_cast<std::size_t>(slot));
  }
  own.AltId = 0;
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
