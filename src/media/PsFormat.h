#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "media/PackedTime.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// The bytes of a `.ps` media file (docs/media-format.md). Functions over buffers only: no file, no
// state. Nothing read from a file is trusted: sizes are checked against the buffer.

// A file takes the frames of five minutes from the moment in its name on.
inline constexpr std::int64_t kFileSeconds = 5 * 60;

inline constexpr unsigned kStreamCount = 32;
inline constexpr unsigned kVideoStreams = 16;       // 0 to 15; audio is 16 to 31
inline constexpr std::uint16_t kWholeFile = 65535;  // in place of a stream number

inline constexpr std::size_t kPackHeaderSize = 16;
inline constexpr std::size_t kProgramMapSize = 1962;
inline constexpr std::size_t kPesHeaderSize = 32;
inline constexpr std::uint32_t kFrameAlignment = 32;  // sizes and places of frames
inline constexpr std::uint32_t kMaxFrameSize = 4194272;
inline constexpr std::size_t kMaxUserData = 87;
inline constexpr std::size_t kMaxEncodedUserData = 116;
inline constexpr std::uint32_t kNoPreviousFrame = 0xFFFFFFFFu;  // previous size of the first frame

inline constexpr std::uint8_t kFrameAudio = 0;
inline constexpr std::uint8_t kFrameI = 1;
inline constexpr std::uint8_t kFrameP = 2;
inline constexpr std::uint8_t kFrameB = 3;
inline constexpr std::uint8_t kFrameTypeMask = 0x03;
inline constexpr std::uint8_t kEventFlagsMask = 0xE0;  // motion, alarm, third kind
inline constexpr std::uint8_t kFlagMotion = 0x80;
inline constexpr std::uint8_t kFlagAlarm = 0x40;

// What a stream type byte adds to the codec.
inline constexpr std::uint8_t kVideoTypes = 128;
inline constexpr std::uint8_t kAudioTypes = 144;

extern const std::array<std::byte, kPackHeaderSize> kPackHeader;
[[nodiscard]] bool IsPackHeader(std::span<const std::byte, kPackHeaderSize> bytes);

// --- Program stream map ---

struct PsFileInfo {
  std::array<std::uint8_t, 4> fileInput{};  // only the first byte is kept
  std::array<std::uint8_t, 16> fileIdentifier{};
  std::string fileName;    // kept up to 32 bytes
  std::uint8_t level = 0;  // 0, or the writer refuses

  bool operator==(const PsFileInfo&) const = default;
};

struct PsStreamDescriptor {
  std::uint8_t streamType = 0;  // codec + 128 for video, + 144 for audio
  std::uint8_t streamId = 0;    // 0xE0 + n or 0xD0 + n for video, 0xC0 + (n - 16) for audio
  std::uint8_t width16 = 0;     // video, pixels / 16
  std::uint8_t height16 = 0;
  std::uint8_t channel = 0;  // not in the map: goes to the stream record and every frame
  std::uint8_t spare6 = 0;
  std::uint8_t spare7 = 0;
  std::array<std::uint8_t, 16> identifier{};
  std::string name;                  // kept up to 32 bytes
  std::uint8_t encoder = 0;          // not in the map: goes to the stream record and every frame
  std::uint8_t rateFlag = 0;         // audio; carried in bit 3 of the rate
  std::uint16_t bufSizeSamples = 0;  // audio
  std::uint16_t sampleRate = 0;      // audio, Hz, bit 3 clear

  bool operator==(const PsStreamDescriptor&) const = default;
};

// `info.level` is written as it is.
void EncodeProgramMap(const PsFileInfo& info,
                      std::span<const PsStreamDescriptor, kStreamCount> descriptors,
                      std::span<std::byte, kProgramMapSize> map);

// Bytes behind the six that start a map, by its length field.
[[nodiscard]] std::uint16_t ProgramMapLength(std::span<const std::byte, 6> head);

// The fields of `map`, a program stream map from its start code on, also of another writer's
// version with shorter parts: what the map doesn't hold stays as it was in the result. False, with
// the result untouched, when the map is too short or contradicts itself.
[[nodiscard]] bool DecodeFileInfo(ConstBytes map, PsFileInfo& info);
[[nodiscard]] bool DecodeStreamDescriptor(ConstBytes map, unsigned stream,
                                          PsStreamDescriptor& descriptor);

// --- Frames ---

// The stream number of a PES stream id, always below kStreamCount.
[[nodiscard]] constexpr std::uint8_t StreamOfId(std::uint8_t id) {
  return static_cast<std::uint8_t>(((id & 0x30u) != 0 ? 0u : kVideoStreams) + (id & 15u));
}

// Zero bytes that follow `content` bytes behind the PES header.
[[nodiscard]] constexpr std::uint32_t PaddingFor(std::uint64_t content) {
  return static_cast<std::uint32_t>((kFrameAlignment - content % kFrameAlignment) %
                                    kFrameAlignment);
}

// A total frame size that the format can hold.
[[nodiscard]] constexpr bool IsFrameSize(std::uint64_t size) {
  return size != 0 && size % kFrameAlignment == 0 && size <= kMaxFrameSize;
}

// Ticks of the 90 kHz time stamps, and the greatest that has room.
inline constexpr std::uint64_t kTicksPerMs = 90;
inline constexpr std::uint64_t kMaxTicks = (std::uint64_t{1} << 33) - 1;

struct PesHeader {
  std::uint8_t streamId = 0;
  std::uint8_t userDataBytes = 0;  // encoded, 0 to 116
  std::uint64_t pts = 0;           // 90 kHz, 33 bits
  std::uint64_t dts = 0;
  std::uint32_t previousSize = kNoPreviousFrame;
  std::uint32_t size = 0;  // of the whole frame
  std::uint8_t frameInfo = 0;
  std::uint8_t streamInfo = 0;
  std::uint8_t padInfo = 0;
  PackedDate date = 0;

  bool operator==(const PesHeader&) const = default;
};

using PesHeaderBytes = std::span<std::byte, kPesHeaderSize>;
using ConstPesHeaderBytes = std::span<const std::byte, kPesHeaderSize>;

void EncodePesHeader(const PesHeader& header, PesHeaderBytes bytes);

// Any bytes decode; nothing is checked. `userDataBytes` is bounded to what the format can hold.
[[nodiscard]] PesHeader DecodePesHeader(ConstPesHeaderBytes bytes);

// 00 00 01, the start of every frame. False for fewer than three bytes.
[[nodiscard]] bool HasStartCode(ConstBytes bytes);

[[nodiscard]] constexpr std::uint8_t FrameInfo(std::uint8_t flags, std::uint16_t frameType) {
  return static_cast<std::uint8_t>((flags & 0xFCu) | 0x1Cu | (frameType & kFrameTypeMask));
}
[[nodiscard]] constexpr std::uint8_t StreamInfo(std::uint8_t encoder, std::uint8_t channel) {
  return static_cast<std::uint8_t>(0xC0u | (encoder & 3u) << 4 | (channel & 15u));
}
[[nodiscard]] constexpr std::uint8_t EncoderOf(std::uint8_t streamInfo) {
  return (streamInfo >> 4) & 3;
}
[[nodiscard]] constexpr std::uint8_t ChannelOf(std::uint8_t streamInfo) {
  return streamInfo & 15;
}

// The pad count of a pad info byte; 0 when the byte isn't one.
[[nodiscard]] constexpr std::uint32_t PadCount(std::uint8_t padInfo) {
  return (padInfo & 0xE0u) == 0xC0u ? padInfo & 0x1Fu : 0u;
}

// Single fields of a packet that somebody else made.
void PatchPreviousSize(PesHeaderBytes bytes, std::uint32_t previousSize);
void PatchStream(PesHeaderBytes bytes, std::uint8_t streamId, std::uint8_t addedFlags,
                 std::uint8_t streamInfo);

// A size of up to 22 bits in three bytes that can't imitate a start code.
void EncodeProtectedSize(std::uint32_t size, std::span<std::byte, 3> bytes);
[[nodiscard]] std::uint32_t DecodeProtectedSize(std::span<const std::byte, 3> bytes);

// A time stamp of 33 bits.
void EncodeTicks(std::uint64_t ticks, std::span<std::byte, 5> bytes);
[[nodiscard]] std::uint64_t DecodeTicks(std::span<const std::byte, 5> bytes);

// --- User data of a frame ---

// Bytes in the file for `size` bytes of user data.
[[nodiscard]] constexpr std::size_t EncodedUserDataSize(std::size_t size) {
  return size * 4 / 3;
}

// Encodes whole triples and clears the rest of `encoded`, which holds EncodedUserDataSize bytes.
void EncodeUserData(ConstBytes data, MutableBytes encoded);

// Decodes as many whole triples as both buffers allow and returns the bytes gained. The third byte
// of each triple comes back without its two low bits; this loss is part of the format.
[[nodiscard]] std::size_t DecodeUserData(ConstBytes encoded, MutableBytes data);

}  // namespace qv::kelvo
