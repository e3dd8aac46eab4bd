#include "record/CodecConfig.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint32_t kMultiplexedByte = qv::kelvo::kWholeDevice;
constexpr std::uint32_t kEncoderByte = qv::kelvo::kWideInput;
constexpr std::int32_t kEncoders = 32;
constexpr std::int32_t kChannels = 16;  // of an encoder, video or audio

bool IsDisabled(const TiXmlElement& element) {
  std::int32_t enabled = 0;
  return ReadInt(element, "Enabled", enabled) && enabled == 0;
}

bool ReadEncoderNumber(const TiXmlElement& encoder, std::int32_t& number) {
  return ReadInt(encoder, "Number", number) && number >= 0 && number < kEncoders;
}

std::uint32_t Bit(std::int32_t number) {
  return 1u << number;
}

// Both in milliseconds, up to the largest number of the slot's field.
std::int32_t KeptAheadOfMotion(const InputSettings& settings) {
  const std::int64_t sum = std::int64_t{settings.PreMotion} + settings.BeginThreshold;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      sum, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

// Makes `to`, of a channel stream, a copy of `from`, with the input's number within the device.
// What runs in a slot that was in use before goes on.
void CopySlot(const ChannelSlot& from, std::int32_t input, ChannelSlot& to) {
  ChannelSlot copy = from;
  copy.Input = input;
  if (to.Encoder >= 0) {
    copy.ActiveAlarms = std::move(to.ActiveAlarms);
    copy.MotionTime = to.MotionTime;
    copy.LastWritten = to.LastWritten;
  }
  to = std::move(copy);
}

}  // namespace

CodecConfig::CodecConfig(const ConfigTarget& target, const DeviceAddress& address,
                         const DeviceInputs& inputs, int videoInputs, SeenDevices& seen)
    : Target(target),
      Address(address),
      Inputs(inputs),
      VideoInputs(videoInputs),
      Seen(seen),
      AudioWithVideo(target.Services.FileSystem.Retention().preserveExpirationAudioWithVideo) {}

// Encoders with a sequence take slots one behind the other, in the order of the message; audio is
// that of encoder 0. What slots are left over no longer belong to anybody.
void CodecConfig::Apply(const TiXmlElement& codec) {
  const std::uint32_t restarts = ReadRestarts(codec);
  RecordStream* multiplexed = nullptr;
  bool isNew = false, hasAudio = false;
  int slotBase = 0;
  for (const TiXmlElement& element : Children(codec, "Encoder")) {
    std::int32_t number = 0;
    if (!ReadEncoderNumber(element, number)) continue;
    const bool restart = (restarts & Bit(number)) != 0;
    const TiXmlElement* sequence = element.FirstChildElement("Sequence");
    if (sequence == nullptr) {
      ApplyAlone(element, number, restart);
      continue;
    }
    if (multiplexed == nullptr) {
      const DeviceAddress device{Address.Id, Address.Device, 0};
      const std::uint32_t id = device.With(kMultiplexedByte);
      isNew = Target.Streams.Find(id) == nullptr;
      multiplexed = &GetOrCreateStream(id, restarts != 0);
    }
    Encoder encoder{number, restart || isNew, true, *multiplexed, slotBase, 0};
    TakeSequence(*sequence, encoder);
    ApplyChannels(element, encoder);
    if (number == 0) ApplyAudio(element, encoder);
    hasAudio |= number == 0;
    slotBase += encoder.ChannelCount;
  }
  if (multiplexed == nullptr) return;
  for (int slot = slotBase; slot < kVideoSlots; ++slot) multiplexed->ResetSlot(slot);
  for (int slot = kVideoSlots; !hasAudio && slot < kSlots; ++slot) multiplexed->ResetSlot(slot);
  if (restarts != 0 || isNew) multiplexed->OpenFile();
}

bool CodecConfig::Encoder::Restarts(int slot) const {
  return Restart || Stream.Slots[static_cast<std::size_t>(slot)].Encoder != Number;
}

// The encoders that start afresh, a bit for each: those that aren't told as running.
std::uint32_t CodecConfig::ReadRestarts(const TiXmlElement& codec) const {
  std::uint32_t restarts = 0;
  for (const TiXmlElement& encoder : Children(codec, "Encoder")) {
    std::int32_t number = 0, running = 0;
    if (!ReadInt(encoder, "Number", number)) continue;
    if (number < 0 || number >= kEncoders) {
      LogPrintf(LogWarning, "ID %08X device %d invalid encoder %d", Address.Id, Address.Device,
                number);
    } else if (ReadInt(encoder, "Running", running) && running != 0) {
      LogPrintf(LogTrace, "update config encoder still running");
    } else {
      restarts |= Bit(number);
    }
  }
  return restarts;
}

// Which slots record is said anew by each configuration, so that the stream begins without any.
RecordStream& CodecConfig::GetOrCreateStream(std::uint32_t id, bool restart) {
  RecordStream* stream = Target.Streams.Find(id);
  if (stream == nullptr) {
    stream = &Target.Streams.Add(std::make_unique<RecordStream>(Target.Services, id));
    LogPrintf(LogInfo, "created record stream %08lX", static_cast<unsigned long>(id));
  } else if (restart) {
    stream->CloseFile();
  }
  stream->ActiveChannels.reset();
  Seen.Streams.insert(id);
  return *stream;
}

// The sequence's inputs take the encoder's slots.
void CodecConfig::TakeSequence(const TiXmlElement& sequence, Encoder& encoder) {
  for (const std::int32_t input : ReadSequence(sequence)) {
    const int slot = encoder.SlotBase + encoder.ChannelCount;
    if (slot >= kSlots) break;
    if (encoder.Restarts(slot)) {
      encoder.Stream.Slots[static_cast<std::size_t>(slot)].Input = input;
    }
    ++encoder.ChannelCount;
  }
}

void CodecConfig::ApplyAlone(const TiXmlElement& element, std::int32_t number, bool restart) {
  const std::uint32_t lowByte = kEncoderByte + static_cast<std::uint32_t>(number);
  const std::uint32_t id = Address.With(lowByte);
  restart = restart || Target.Streams.Find(id) == nullptr;
  RecordStream& stream = GetOrCreateStream(id, restart);
  if (restart) stream.Layout = static_cast<std::uint8_t>(lowByte);

  Encoder encoder{number, restart, false, stream, 0, kChannels};
  ApplyChannels(element, encoder);
  ApplyAudio(element, encoder);
  for (int slot = 0; slot < kVideoSlots; ++slot) {
    if ((encoder.Named & Bit(slot)) == 0) stream.ResetSlot(slot);
  }
  if (restart) stream.OpenFile();
}

void CodecConfig::ApplyChannels(const TiXmlElement& element, Encoder& encoder) {
  for (const TiXmlElement& child : Children(element, "Channel")) {
    std::int32_t channel = 0;
    if (!ReadInt(child, "Number", channel)) continue;
    if (channel < 0 || channel >= kChannels) {
      LogPrintf(LogWarning, "ID %08X device %d encoder %d invalid channel %d", Address.Id,
                Address.Device, encoder.Number, channel);
      continue;
    }
    if (channel >= encoder.ChannelCount) break;
    ApplyChannel(child, encoder, channel);
  }
}

// A channel without its format isn't ready: it keeps what it had, and doesn't count as recording. A
// disabled one is set up all the same, but what it had pending goes.
void CodecConfig::ApplyChannel(const TiXmlElement& element, Encoder& encoder,
                               std::int32_t channel) {
  RecordStream& stream = encoder.Stream;
  const int slotIndex = encoder.SlotBase + channel;
  ChannelSlot& slot = stream.Slots[static_cast<std::size_t>(slotIndex)];
  const bool restart = encoder.Restarts(slotIndex);
  if (!encoder.HasSequence && restart) slot.Input = channel;
  encoder.Named |= Bit(channel);

  if (IsDisabled(element)) stream.DropSlotFrames(slotIndex);
  std::int32_t standard = 0, width = 0, height = 0;
  if (!ReadInt(element, "Standard", standard) || !ReadInt(element, "Width", width) ||
      !ReadInt(element, "Height", height)) {
    return;
  }
  if (restart) stream.DropSlotFrames(slotIndex);
  if (restart && !encoder.Restart) stream.CloseFile();  // it doesn't tell of the slot
  slot.Standard = standard;
  slot.Width = width;
  slot.Height = height;
  slot.Encoder = encoder.Number;
  stream.MapChannel(ChannelByte(encoder.Number, channel), slotIndex);

  const int input = stream.EffectiveInput(slotIndex);
  if (!IsInput(input)) {
    LogPrintf(LogWarning, "ID %08X device %d encoder %d channel %d invalid input %d", Address.Id,
              Address.Device, encoder.Number, channel, input);
    return;
  }
  const InputSettings& settings = Inputs.Video[static_cast<std::size_t>(input)];
  if (!settings.Told) TellUntold(encoder, channel, "video", input);
  const auto number = static_cast<std::uint32_t>(input);
  slot.Name = settings.Name;
  slot.PostMotion = settings.PostMotion;
  slot.PreMotion = KeptAheadOfMotion(settings);
  slot.Schedule = settings.Schedule;
  // Without one in the table the slot keeps the schedule it has.
  (void)Target.Services.FileSystem.Lapse().GetSchedule(
      qv::kelvo::MakeStreamID(static_cast<std::uint32_t>(Address.Context), Address.Id,
                              static_cast<std::uint32_t>(Address.Device), number),
      slot.LapseSchedule);
  slot.PreAlarm = Target.PreAlarmSeconds[Address.With(number)];
  AddTuple(Address.With(ChannelByte(encoder.Number, channel)), input);

  if (Inputs.HasOwnStream.test(number)) {
    SplitOff(encoder, channel, input);
  } else {
    stream.ActiveChannels.set(static_cast<std::size_t>(slotIndex));
  }
}

// A channel without its Input element has no schedule, which is easily taken for a fault.
void CodecConfig::TellUntold(const Encoder& encoder, std::int32_t channel, const char* kind,
                             int input) const {
  LogPrintf(LogWarning, "ID %08X device %d encoder %d channel %d has no %s input %d: no schedule",
            Address.Id, Address.Device, encoder.Number, channel, kind, input);
}

// The channel's slot stays set up in the parent, and so in the heads of its files, but doesn't
// record there.
void CodecConfig::SplitOff(Encoder& encoder, std::int32_t channel, std::int32_t input) {
  RecordStream& parent = encoder.Stream;
  const int slotIndex = encoder.SlotBase + channel;
  const std::uint32_t lowByte = ChannelByte(encoder.Number, channel);
  const std::uint32_t id = Address.With(lowByte);
  const bool restart = encoder.Restart || Target.Streams.Find(id) == nullptr;
  RecordStream& own = GetOrCreateStream(id, restart);
  own.ParentId = parent.StreamId;
  own.AltId = 0;
  own.ActiveChannels.set(0);
  if (restart) own.DropSlotFrames(0);
  CopySlot(parent.Slots[static_cast<std::size_t>(slotIndex)], input, own.Slots[0]);
  own.MapChannel(lowByte, 0);
  parent.DropSlotFrames(slotIndex);

  // With its only input gone, and the audio with it, nothing is left for the parent to record.
  if (AudioWithVideo && VideoInputs == 1) parent.CloseFile();
  if (restart) own.OpenFile();
}

// The stream that the channel was split off to by the message at hand, or null.
RecordStream* CodecConfig::OwnStream(const Encoder& encoder, std::int32_t channel) const {
  const std::uint32_t id = Address.With(ChannelByte(encoder.Number, channel));
  return Seen.Streams.count(id) != 0 ? Target.Streams.Find(id) : nullptr;
}

// Comes behind the video channels, which may have been split off and then take their audio along.
void CodecConfig::ApplyAudio(const TiXmlElement& element, Encoder& encoder) {
  for (const TiXmlElement& child : Children(element, "AudioChannel")) {
    std::int32_t channel = 0;
    if (!ReadInt(child, "Number", channel) || channel < 0 || channel >= kChannels) continue;
    ApplyAudioChannel(child, encoder, channel);
  }
  for (std::int32_t channel = 0; channel < kChannels; ++channel) {
    const int slotIndex = channel + kVideoSlots;
    if ((encoder.Named & Bit(slotIndex)) == 0) encoder.Stream.ResetSlot(slotIndex);
    if ((encoder.AudioReady & Bit(slotIndex)) != 0) continue;
    if (RecordStream* own = OwnStream(encoder, channel)) own->ResetSlot(kOwnAudioSlot);
  }
}

void CodecConfig::ApplyAudioChannel(const TiXmlElement& element, Encoder& encoder,
                                    std::int32_t channel) {
  RecordStream& stream = encoder.Stream;
  const int slotIndex = channel + kVideoSlots;
  ChannelSlot& slot = stream.Slots[static_cast<std::size_t>(slotIndex)];
  encoder.Named |= Bit(slotIndex);
  RecordStream* own = OwnStream(encoder, channel);
  if (IsDisabled(element)) {
    stream.DropSlotFrames(slotIndex);
    if (own != nullptr) own->ResetSlot(kOwnAudioSlot);
  }
  std::int32_t standard = 0, rate = 0, samples = 0;
  if (!ReadInt(element, "Standard", standard) || !ReadInt(element, "SampleRate", rate) ||
      !ReadInt(element, "BufSizeSamples", samples)) {
    return;
  }
  if (!encoder.Restart && encoder.Restarts(slotIndex)) stream.CloseFile();
  slot.Standard = standard;
  slot.SampleRate = rate;
  slot.BufSizeSamples = samples;
  slot.Encoder = encoder.Number;
  slot.Input = channel;
  const std::uint32_t lowByte = ChannelByte(encoder.Number, AudioChannel(channel));
  stream.MapChannel(lowByte, slotIndex);

  const int input = stream.EffectiveInput(slotIndex);
  if (!IsInput(input)) {
    LogPrintf(LogWarning, "ID %08X device %d encoder %d channel %d invalid audio %d", Address.Id,
              Address.Device, encoder.Number, channel, input);
    return;
  }
  const InputSettings& settings = Inputs.Audio[static_cast<std::size_t>(input)];
  if (!settings.Told) TellUntold(encoder, channel, "audio", input);
  slot.Name = settings.Name;
  slot.Schedule = settings.Schedule;
  slot.PreAlarm =
      Target.PreAlarmSeconds[Address.With(static_cast<std::uint32_t>(input) + kAudioKey)];
  AddTuple(Address.With(lowByte), input);

  if (own != nullptr) {
    CopySlot(slot, input, own->Slots[std::size_t{kOwnAudioSlot}]);
    own->MapChannel(lowByte, kOwnAudioSlot);
  }
  encoder.AudioReady |= Bit(slotIndex);
  if (own != nullptr && AudioWithVideo) {
    own->ActiveChannels.set(kOwnAudioSlot);
    own->AltId = Address.With(lowByte);
    own->TakeSlotFrames(stream, slotIndex, kOwnAudioSlot);
    own->CloseFile();
    own->OpenFile();
  } else {
    stream.ActiveChannels.set(static_cast<std::size_t>(slotIndex));
  }
}

void CodecConfig::AddTuple(std::uint32_t provider, std::int32_t input) {
  SProviderTuple tuple;
  tuple.Provider = static_cast<std::int32_t>(provider);
  tuple.Id = Address.Id;
  tuple.Device = Address.Device;
  tuple.Input = input;
  tuple.Context = Address.Context;
  Seen.Tuples.insert(tuple);
}

}  // namespace qvsvr::kelvo
