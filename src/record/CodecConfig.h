#pragma once

#include <cstdint>
#include <set>

#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"

namespace qvsvr::kelvo {

// What a Devices element configures; the rest of its owner's streams and channels is stale.
struct SeenDevices {
  std::set<std::uint32_t> Streams;
  ProviderTuples Tuples;
};

// Turns the encoders of one Device or Context element into streams and slots. An encoder with a
// Sequence shares the device's multiplexed stream, any other has a stream of its own, and an input
// with an expiration type is split off into a stream for its channel alone, since a file can only
// expire whole.
//
// The same configuration comes again and again while cameras record, so what is told again changes
// nothing that runs: an encoder that the host tells as running keeps its file, its pending frames
// and its alarms, unless a slot becomes another encoder's. A stream that is new here starts afresh
// whatever the host says. Lives for one Context element; worker thread only.
class CodecConfig {
 public:
  // Borrows all but `address`. `videoInputs` counts the inputs that the Device has shown up to
  // here.
  CodecConfig(const ConfigTarget& target, const DeviceAddress& address, const DeviceInputs& inputs,
              int videoInputs, SeenDevices& seen);

  void Apply(const TiXmlElement& codec);

 private:
  // The Encoder element at hand.
  struct Encoder {
    std::int32_t Number;  // 0 to 31
    bool Restart;
    bool HasSequence;
    RecordStream& Stream;
    int SlotBase;                  // slot of channel 0
    int ChannelCount;              // slots from there on
    std::uint32_t Named = 0;       // a bit for each channel: video, then audio
    std::uint32_t AudioReady = 0;  // those of audio that are ready to record

    // Whether the slot starts afresh: with its encoder, or because it wasn't this encoder's before.
    [[nodiscard]] bool Restarts(int slot) const;
  };

  std::uint32_t ReadRestarts(const TiXmlElement& codec) const;
  RecordStream& GetOrCreateStream(std::uint32_t id, bool restart);
  void TakeSequence(const TiXmlElement& sequence, Encoder& encoder);
  void ApplyAlone(const TiXmlElement& element, std::int32_t number, bool restart);

  void ApplyChannels(const TiXmlElement& element, Encoder& encoder);
  void ApplyChannel(const TiXmlElement& element, Encoder& encoder, std::int32_t channel);
  void TellUntold(const Encoder& encoder, std::int32_t channel, const char* kind, int input) const;
  void SplitOff(Encoder& encoder, std::int32_t channel, std::int32_t input);

  void ApplyAudio(const TiXmlElement& element, Encoder& encoder);
  void ApplyAudioChannel(const TiXmlElement& element, Encoder& encoder, std::int32_t channel);
  RecordStream* OwnStream(const Encoder& encoder, std::int32_t channel) const;

  void AddTuple(std::uint32_t provider, std::int32_t input);

  const ConfigTarget& Target;
  const DeviceAddress Address;
  const DeviceInputs& Inputs;
  const int VideoInputs;
  SeenDevices& Seen;
  const bool AudioWithVideo;  // a channel's own stream takes its audio along
};

// Low byte of the provider id of a channel (0 to 15 video, 16 to 31 audio): two bits of the encoder
// ahead of it, so that encoders four apart share ids.
[[nodiscard]] constexpr std::uint32_t ChannelByte(std::int32_t encoder, std::int32_t channel) {
  return (static_cast<std::uint32_t>(encoder) & 3u) << 5 |
         (static_cast<std::uint32_t>(channel) & 31u);
}

[[nodiscard]] constexpr bool IsAudioProvider(std::uint32_t provider) {
  return (provider & 16u) != 0;
}

// The audio channel beside a video channel in a provider id, and the slot it has in a channel
// stream.
[[nodiscard]] constexpr std::int32_t AudioChannel(std::int32_t channel) {
  return (channel - kVideoSlots) & 31;
}
inline constexpr int kOwnAudioSlot = kVideoSlots;

}  // namespace qvsvr::kelvo
