#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <string>
#include <vector>

#include "host/Xml.h"
#include "media/StreamId.h"
#include "storage/Schedule.h"

namespace qvsvr::kelvo {

inline constexpr int kInputs = 32;              // video or audio inputs of a device
inline constexpr std::uint32_t kAudioKey = 32;  // added to an audio input in keys of inputs

// Which Device or Context element is being configured.
struct DeviceAddress {
  std::uint32_t Id = 0;  // of the Devices element
  std::int32_t Device = 0;
  std::int32_t Context = 0;  // 0 to 15

  // Id of a stream, a provider or an input there. A device number is cut to its field.
  [[nodiscard]] qv::kelvo::StreamID With(std::uint32_t lowByte) const {
    return qv::kelvo::MakeStreamID(static_cast<std::uint32_t>(Context), Id,
                                   static_cast<std::uint32_t>(Device), lowByte);
  }
};

// How one input is to be recorded. An encoder's channels refer to inputs by their numbers.
struct InputSettings {
  bool Told = false;  // by an Input element
  std::string Name;
  qvsvr::kelvo::Schedule Schedule;
  std::int32_t PreMotion = 0;       // milliseconds
  std::int32_t BeginThreshold = 0;  // milliseconds, kept ahead of motion beside PreMotion
  std::int32_t PostMotion = 0;      // milliseconds
};

struct InputExpiration {
  std::int32_t Input = 0;
  std::int32_t Type = 0;
  std::int32_t Days = 0;
};

// The inputs of one Device or Context element.
struct DeviceInputs {
  std::array<InputSettings, kInputs> Video;
  std::array<InputSettings, kInputs> Audio;
  std::bitset<kInputs> HasOwnStream;         // video inputs with an expiration type
  std::vector<InputExpiration> Expirations;  // those with days
  int VideoCount = 0;                        // Input elements of Video that were read
};

[[nodiscard]] inline bool IsInput(std::int32_t number) {
  return number >= 0 && number < kInputs;
}

// Reads the inputs of a Device or Context element. Those with a number out of range are logged and
// left out, those without one are left out. False when no Video element holds anything, which
// leaves a Context without anything to configure.
[[nodiscard]] bool ReadVideoInputs(const TiXmlElement& element, DeviceInputs& inputs);
void ReadAudioInputs(const TiXmlElement& element, DeviceInputs& inputs);

// The inputs that a Sequence shows, in the order of their positions; those from Count on don't
// count, and a position that is told twice has the later input.
[[nodiscard]] std::vector<std::int32_t> ReadSequence(const TiXmlElement& sequence);

// Whether a Context element has a number from 1 to 15, or it is the Device itself, which is 0; else
// there is a line in the log.
[[nodiscard]] bool IsContext(std::int32_t number, const TiXmlElement& element);

}  // namespace qvsvr::kelvo
