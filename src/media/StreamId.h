#pragma once

#include <cstdint>

namespace qv::kelvo {

// The 32-bit identity of a camera input or of a record stream, printed as CPPPDDII: context,
// provider, device, input. docs/media-format.md describes the input byte.
using StreamID = std::uint32_t;

inline constexpr std::uint32_t kProviderMask = 0x0FFF0000u;

// Fields outside their width are cut, so that none spills into another.
[[nodiscard]] constexpr StreamID MakeStreamID(std::uint32_t context, std::uint32_t provider,
                                              std::uint32_t device, std::uint32_t input) {
  return (context & 15u) << 28 | (provider & kProviderMask) | (device & 255u) << 8 | (input & 255u);
}
[[nodiscard]] constexpr std::uint32_t ContextOf(StreamID id) {
  return id >> 28;
}
[[nodiscard]] constexpr std::uint32_t ProviderOf(StreamID id) {
  return id & kProviderMask;
}
[[nodiscard]] constexpr std::uint32_t DeviceOf(StreamID id) {
  return (id >> 8) & 255u;
}
[[nodiscard]] constexpr std::uint32_t InputOf(StreamID id) {
  return id & 255u;
}

// Input bytes from kWideInput on stand for all inputs of an encoder, kWholeDevice for those of a
// device.
inline constexpr std::uint8_t kWideInput = 0x80;
inline constexpr std::uint8_t kWholeDevice = 0xFF;
[[nodiscard]] constexpr bool IsWideInput(std::uint32_t input) {
  return (input & kWideInput) != 0;
}

// The input byte under which stream `stream` of a file is told; `encoder` is the stream's.
[[nodiscard]] constexpr std::uint32_t ToldInput(StreamID file, std::uint32_t encoder,
                                                std::uint32_t stream) {
  return IsWideInput(InputOf(file)) ? (encoder & 3u) << 5 | (stream & 31u) : InputOf(file) + stream;
}

}  // namespace qv::kelvo
