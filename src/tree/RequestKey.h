#pragma once

#include <cstdint>

#include "media/StreamId.h"

namespace qv::kelvo {

// One input as a search names it: provider in bits 20 to 31, device in 12 to 19, context in 8 to
// 11, input in 0 to 7, where audio inputs begin at 32.
using RequestKey = std::uint32_t;

inline constexpr std::uint32_t kFirstAudioInput = 32;

// `provider` is the id of the providing module; the other fields are cut to their width.
[[nodiscard]] constexpr RequestKey MakeRequestKey(std::uint32_t provider, std::uint32_t device,
                                                  std::uint32_t context, std::uint32_t input) {
  return (provider >> 16) << 20 | (device & 255u) << 12 | (context & 15u) << 8 | (input & 255u);
}
[[nodiscard]] constexpr std::uint32_t KeyProvider(RequestKey key) {
  return (key >> 4) & kProviderMask;
}
[[nodiscard]] constexpr std::uint32_t KeyDevice(RequestKey key) {
  return (key >> 12) & 255u;
}
[[nodiscard]] constexpr std::uint32_t KeyContext(RequestKey key) {
  return (key >> 8) & 15u;
}
[[nodiscard]] constexpr std::uint32_t KeyInput(RequestKey key) {
  return key & 255u;
}
[[nodiscard]] constexpr bool IsAudioKey(RequestKey key) {
  return KeyInput(key) >= kFirstAudioInput;
}
// The input's bit in the video mask or, for an audio key, in the audio mask.
[[nodiscard]] constexpr std::uint32_t KeyBit(RequestKey key) {
  return 1u << (key & 31u);
}

// Whether both name the same device and context.
[[nodiscard]] constexpr bool IsSameDevice(RequestKey key, StreamID id) {
  return KeyProvider(key) == ProviderOf(id) && KeyDevice(key) == DeviceOf(id) &&
         KeyContext(key) == ContextOf(id);
}

}  // namespace qv::kelvo
