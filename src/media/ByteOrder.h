#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qv::kelvo {

// Integers at a byte offset of a buffer, big-endian (BE) or little-endian (LE). The caller sees to
// it that the bytes are there.

[[nodiscard]] inline std::uint8_t GetU8(std::span<const std::byte> bytes, std::size_t offset) {
  return std::to_integer<std::uint8_t>(bytes[offset]);
}

[[nodiscard]] inline std::uint16_t GetBE16(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(GetU8(bytes, offset) << 8 | GetU8(bytes, offset + 1));
}

[[nodiscard]] inline std::uint16_t GetLE16(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(GetU8(bytes, offset) | GetU8(bytes, offset + 1) << 8);
}

[[nodiscard]] inline std::uint32_t GetBE32(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(GetBE16(bytes, offset)) << 16 | GetBE16(bytes, offset + 2);
}

[[nodiscard]] inline std::uint32_t GetLE32(std::span<const std::byte> bytes, std::size_t offset) {
  return GetLE16(bytes, offset) | static_cast<std::uint32_t>(GetLE16(bytes, offset + 2)) << 16;
}

inline void PutU8(std::span<std::byte> bytes, std::size_t offset, std::uint32_t value) {
  bytes[offset] = static_cast<std::byte>(value & 0xFFu);
}

inline void PutBE16(std::span<std::byte> bytes, std::size_t offset, std::uint16_t value) {
  PutU8(bytes, offset, value >> 8u);
  PutU8(bytes, offset + 1, value);
}

inline void PutLE16(std::span<std::byte> bytes, std::size_t offset, std::uint16_t value) {
  PutU8(bytes, offset, value);
  PutU8(bytes, offset + 1, value >> 8u);
}

inline void PutBE32(std::span<std::byte> bytes, std::size_t offset, std::uint32_t value) {
  PutBE16(bytes, offset, static_cast<std::uint16_t>(value >> 16));
  PutBE16(bytes, offset + 2, static_cast<std::uint16_t>(value & 0xFFFFu));
}

inline void PutLE32(std::span<std::byte> bytes, std::size_t offset, std::uint32_t value) {
  PutLE16(bytes, offset, static_cast<std::uint16_t>(value & 0xFFFFu));
  PutLE16(bytes, offset + 2, static_cast<std::uint16_t>(value >> 16));
}

}  // namespace qv::kelvo
