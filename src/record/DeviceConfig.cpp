#include "record/DeviceConfig.h"

#include <vector>

#include "host/DeviceNest.h"
#include "host/Log.h"
#include "record/CodecConfig.h"
#include "record/DeviceReader.h"

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

}  // namespace qvsvr::kelvo
