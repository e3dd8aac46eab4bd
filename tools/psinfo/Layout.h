#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "psinfo/Recording.h"

namespace psinfo {

// Bytes of both files, by docs/media-format.md.

constexpr std::size_t kPackHeader = 16, kMap = 1962, kFirstFrame = kPackHeader + kMap;
constexpr std::size_t kPesHeader = 32, kUnit = 32;  // sizes and places of frames are multiples
constexpr std::size_t kHead = 64, kRecord = 32, kIndexHead = kHead + kStreams * kRecord;
constexpr std::size_t kRunRecord = 16;
constexpr std::uint32_t kNone = 0xFFFFFFFF;

using View = std::span<const std::uint8_t>;

inline std::uint32_t BigAt(View data, std::size_t at, unsigned width) {
  std::uint32_t value = 0;
  for (unsigned i = 0; i < width; ++i) value = value << 8 | data[at + i];
  return value;
}
inline std::uint32_t LittleAt(View data, std::size_t at, unsigned width) {
  std::uint32_t value = 0;
  for (unsigned i = 0; i < width; ++i) value |= std::uint32_t{data[at + i]} << (8 * i);
  return value;
}

// What a file must hold, put together from what was read out of it.
struct Wanted {
  Bytes bytes;

  Wanted& Fill(std::size_t count, std::uint8_t value = 0) {
    bytes.insert(bytes.end(), count, value);
    return *this;
  }
  Wanted& Big(unsigned width, std::uint64_t value) {
    for (unsigned i = width; i-- > 0;) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    return *this;
  }
  Wanted& Little(unsigned width, std::uint64_t value) {
    for (unsigned i = 0; i < width; ++i) {
      bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }
    return *this;
  }
  Wanted& TimeStamp(std::uint64_t t) {
    return Big(1, 0x31 | (t >> 29 & 0x0E))
        .Big(1, t >> 22)
        .Big(1, t >> 14 | 1)
        .Big(1, t >> 7)
        .Big(1, t << 1 | 1);
  }
  Wanted& Size(std::uint32_t size) {
    return Big(1, 0x80 | size >> 15).Big(1, (size >> 7 & 0xF0) | 8 | (size >> 8 & 7)).Big(1, size);
  }
};

}  // namespace psinfo
