#include "media/PsFormat.h"

#include <algorithm>
#include <iterator>

#include "media/ByteOrder.h"

namespace qv::kelvo {

namespace {

constexpr std::uint8_t kPackHeaderId = 0xBA;  // byte 3 of the pack header

// Offsets in the program stream map.
constexpr std::size_t kMapStartCode = 0;
constexpr std::size_t kMapLength = 4;
constexpr std::size_t kMapVersion = 6;
constexpr std::size_t kMapMarker = 7;
constexpr std::size_t kMapInfoLength = 8;
constexpr std::size_t kMapInfo = 10;  // what the info length counts starts here
constexpr std::size_t kMapFileInput = 18;
constexpr std::size_t kMapFileIdentifier = 22;
constexpr std::size_t kMapFileName = 38;
constexpr std::size_t kMapInfoLevel = 70;
constexpr std::size_t kMapLevel = 71;
constexpr std::size_t kMapStreamsLength = 104;
constexpr std::size_t kMapStreams = 106;

constexpr std::uint16_t kMapHeadSize = 6;  // not counted by the length field
constexpr std::uint16_t kInfoLength = 94;
constexpr std::uint16_t kMinInfoLength = 28;
constexpr std::uint16_t kInfoLengthWithName = 70;
constexpr std::uint16_t kInfoLengthWithLevel = 72;
constexpr std::size_t kStreamsBehindInfo = 12;  // the first entry is at info length + this
constexpr std::size_t kNameSize = 32;

// Offsets in a stream entry.
constexpr std::size_t kEntryType = 0;
constexpr std::size_t kEntryId = 1;
constexpr std::size_t kEntryInfoLength = 2;
constexpr std::size_t kEntryWidth = 4;
constexpr std::size_t kEntryHeight = 5;
constexpr std::size_t kEntryFill = 6;
constexpr std::size_t kEntryBufSize = 4;
constexpr std::size_t kEntryRate = 6;
constexpr std::size_t kEntrySpare6 = 8;
constexpr std::size_t kEntrySpare7 = 9;
constexpr std::size_t kEntryIdentifier = 10;
constexpr std::size_t kEntryName = 26;
constexpr std::size_t kEntrySize = 58;

constexpr std::size_t kMinEntrySize = 8;
constexpr std::size_t kEntrySizeWithIdentifier = 26;
constexpr std::size_t kEntryHeadSize = 4;  // not counted by the info length
constexpr std::uint16_t kRateFlag = 8;     // bit 3 of the sample rate
constexpr std::uint16_t kDefaultRate = 8000;

static_assert(kMapStreams + kStreamCount * kEntrySize == kProgramMapSize);
static_assert(kStreamsBehindInfo + kInfoLength == kMapStreams);

// Offsets in the PES header.
constexpr std::size_t kPesStreamId = 3;
constexpr std::size_t kPesLength = 4;
constexpr std::size_t kPesMarker = 6;
constexpr std::size_t kPesContents = 7;
constexpr std::size_t kPesHeaderLength = 8;
constexpr std::size_t kPesPts = 9;
constexpr std::size_t kPesDts = 14;
constexpr std::size_t kPesExtension = 19;
constexpr std::size_t kPesExtensionLength = 20;
constexpr std::size_t kPesPreviousSize = 21;
constexpr std::size_t kPesSize = 24;
constexpr std::size_t kPesFrameInfo = 27;
constexpr std::size_t kPesStreamInfo = 28;
constexpr std::size_t kPesPadInfo = 29;
constexpr std::size_t kPesDate = 30;

constexpr std::uint32_t kStartCode = 0x00000100;
constexpr std::uint32_t kMapId = 0xBC;
constexpr std::size_t kPesFixedHeaderLength = 23;     // bytes 9 to 31
constexpr std::size_t kPesFixedExtensionLength = 11;  // bytes 21 to 31

void PutText(MutableBytes field, const std::string& text) {
  const ConstBytes bytes = std::as_bytes(std::span(text.data(), text.size()));
  const ConstBytes kept = bytes.first(std::min(bytes.size(), field.size()));
  std::copy(kept.begin(), std::find(kept.begin(), kept.end(), std::byte{0}), field.begin());
}

std::string GetText(ConstBytes field) {
  const auto end = std::find(field.begin(), field.end(), std::byte{0});
  std::string text;
  std::transform(field.begin(), end, std::back_inserter(text),
                 [](std::byte b) { return std::to_integer<char>(b); });
  return text;
}

void PutBytes(MutableBytes field, std::span<const std::uint8_t> bytes) {
  std::ranges::copy(std::as_bytes(bytes), field.begin());
}

void GetBytes(ConstBytes field, std::span<std::uint8_t> bytes) {
  std::ranges::copy(field.first(bytes.size()), std::as_writable_bytes(bytes).begin());
}

void EncodeEntry(const PsStreamDescriptor& descriptor, bool video, MutableBytes entry) {
  PutU8(entry, kEntryType, descriptor.streamType);
  PutU8(entry, kEntryId, descriptor.streamId);
  PutBE16(entry, kEntryInfoLength, kEntrySize - kEntryHeadSize);
  if (video) {
    PutU8(entry, kEntryWidth, descriptor.width16);
    PutU8(entry, kEntryHeight, descriptor.height16);
    PutBE16(entry, kEntryFill, 0xFFFF);
  } else {
    PutBE16(entry, kEntryBufSize, descriptor.bufSizeSamples);
    const auto rate = static_cast<std::uint16_t>(descriptor.sampleRate & ~kRateFlag);
    const auto flag = descriptor.rateFlag != 0 ? kRateFlag : std::uint16_t{0};
    PutBE16(entry, kEntryRate, static_cast<std::uint16_t>(rate | flag));
  }
  PutU8(entry, kEntrySpare6, descriptor.spare6);
  PutU8(entry, kEntrySpare7, descriptor.spare7);
  PutBytes(entry.subspan(kEntryIdentifier), descriptor.identifier);
  PutText(entry.subspan(kEntryName, kNameSize), descriptor.name);
}

void DecodeAudioRate(ConstBytes entry, PsStreamDescriptor& descriptor) {
  const std::uint16_t stored = GetBE16(entry, kEntryRate);
  const bool unset = stored == 0xFFFF || stored == 0;
  descriptor.sampleRate = unset ? kDefaultRate : static_cast<std::uint16_t>(stored & ~kRateFlag);
  descriptor.rateFlag = !unset && (stored & kRateFlag) != 0 ? 1 : 0;
}

// Cuts `map` to its own length and gives its info length; false if it can't be a map.
bool BoundMap(ConstBytes& map, std::size_t& infoLength) {
  if (map.size() < kMapInfo || GetBE32(map, kMapStartCode) != (kStartCode | kMapId)) return false;
  const std::size_t size = std::size_t{kMapHeadSize} + GetBE16(map, kMapLength);
  infoLength = GetBE16(map, kMapInfoLength);
  if (size > map.size() || infoLength < kMinInfoLength || kMapInfo + infoLength > size)
    return false;
  map = map.first(size);
  return true;
}

}  // namespace

constinit const std::array<std::byte, kPackHeaderSize> kPackHeader = [] {
  constexpr std::array<std::uint8_t, kPackHeaderSize> kBytes = {
      0x00, 0x00, 0x01, kPackHeaderId,              // start code
      0x44, 0x00, 0x04, 0x00,          0x04, 0x01,  // system clock 0
      0x00, 0x00, 0x03,                             // rate 0
      0xFA, 0xFF, 0xFF};                            // two stuffing bytes
  std::array<std::byte, kPackHeaderSize> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = std::byte{kBytes[i]};
  return bytes;
}();

bool IsPackHeader(std::span<const std::byte, kPackHeaderSize> bytes) {
  return GetU8(bytes, 3) == kPackHeaderId;
}

void EncodeProgramMap(const PsFileInfo& info,
                      std::span<const PsStreamDescriptor, kStreamCount> descriptors,
                      std::span<std::byte, kProgramMapSize> map) {
  std::ranges::fill(map, std::byte{0});
  PutBE32(map, kMapStartCode, kStartCode | kMapId);
  PutBE16(map, kMapLength, kProgramMapSize - kMapHeadSize);
  PutU8(map, kMapVersion, 0xE2);
  PutU8(map, kMapMarker, 0xFF);
  PutBE16(map, kMapInfoLength, kInfoLength);
  std::ranges::fill(map.subspan(kMapInfo, kMapFileInput - kMapInfo), std::byte{0xFF});
  PutU8(map, kMapFileInput, info.fileInput[0]);
  PutBytes(map.subspan(kMapFileIdentifier), info.fileIdentifier);
  PutText(map.subspan(kMapFileName, kNameSize), info.fileName);
  PutU8(map, kMapInfoLevel, 2);
  PutU8(map, kMapLevel, info.level);
  PutBE16(map, kMapStreamsLength, kStreamCount * kEntrySize);
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    EncodeEntry(descriptors[stream], stream < kVideoStreams,
                map.subspan(kMapStreams + stream * kEntrySize, kEntrySize));
  }
}

std::uint16_t ProgramMapLength(std::span<const std::byte, 6> head) {
  return GetBE16(head, kMapLength);
}

bool DecodeFileInfo(ConstBytes map, PsFileInfo& info) {
  std::size_t infoLength = 0;
  if (!BoundMap(map, infoLength)) return false;
  GetBytes(map.subspan(kMapFileInput), info.fileInput);
  GetBytes(map.subspan(kMapFileIdentifier), info.fileIdentifier);
  if (infoLength >= kInfoLengthWithName)
    info.fileName = GetText(map.subspan(kMapFileName, kNameSize));
  if (infoLength >= kInfoLengthWithLevel) info.level = GetU8(map, kMapLevel);
  return true;
}

bool DecodeStreamDescriptor(ConstBytes map, unsigned stream, PsStreamDescriptor& descriptor) {
  std::size_t infoLength = 0;
  if (stream >= kStreamCount || !BoundMap(map, infoLength)) return false;
  const std::size_t first = infoLength + kStreamsBehindInfo;
  if (first + kEntryHeadSize > map.size()) return false;
  const std::size_t entrySize =
      std::size_t{GetBE16(map, first + kEntryInfoLength)} + kEntryHeadSize;
  if (entrySize < kMinEntrySize || first + (stream + 1) * entrySize > map.size()) return false;

  const ConstBytes entry = map.subspan(first + stream * entrySize, entrySize);
  descriptor.streamType = GetU8(entry, kEntryType);
  descriptor.streamId = GetU8(entry, kEntryId);
  if (stream < kVideoStreams) {
    descriptor.width16 = GetU8(entry, kEntryWidth);
    descriptor.height16 = GetU8(entry, kEntryHeight);
  } else {
    descriptor.bufSizeSamples = GetBE16(entry, kEntryBufSize);
    DecodeAudioRate(entry, descriptor);
  }
  if (entrySize >= kEntrySizeWithIdentifier) {
    descriptor.spare6 = GetU8(entry, kEntrySpare6);
    descriptor.spare7 = GetU8(entry, kEntrySpare7);
    GetBytes(entry.subspan(kEntryIdentifier), descriptor.identifier);
  }
  if (entrySize >= kEntrySize) descriptor.name = GetText(entry.subspan(kEntryName, kNameSize));
  return true;
}

void EncodePesHeader(const PesHeader& header, PesHeaderBytes bytes) {
  PutBE32(bytes, 0, kStartCode | header.streamId);
  PutBE16(bytes, kPesLength, static_cast<std::uint16_t>((header.size - 6) & 0xFFFFu));
  PutU8(bytes, kPesMarker, 0x80);
  PutU8(bytes, kPesContents, 0xC1);
  PutU8(bytes, kPesHeaderLength,
        static_cast<std::uint8_t>(header.userDataBytes + kPesFixedHeaderLength));
  EncodeTicks(header.pts, bytes.subspan<kPesPts, 5>());
  EncodeTicks(header.dts, bytes.subspan<kPesDts, 5>());
  PutU8(bytes, kPesExtension, 0x0F);
  PutU8(bytes, kPesExtensionLength,
        static_cast<std::uint8_t>(0x80u | (header.userDataBytes + kPesFixedExtensionLength)));
  EncodeProtectedSize(header.previousSize, bytes.subspan<kPesPreviousSize, 3>());
  EncodeProtectedSize(header.size, bytes.subspan<kPesSize, 3>());
  PutU8(bytes, kPesFrameInfo, header.frameInfo);
  PutU8(bytes, kPesStreamInfo, header.streamInfo);
  PutU8(bytes, kPesPadInfo, header.padInfo);
  PutLE16(bytes, kPesDate, header.date);
}

PesHeader DecodePesHeader(ConstPesHeaderBytes bytes) {
  PesHeader header;
  header.streamId = GetU8(bytes, kPesStreamId);
  const std::size_t extension = GetU8(bytes, kPesExtensionLength) & 0x7Fu;
  header.userDataBytes = static_cast<std::uint8_t>(
      extension > kPesFixedExtensionLength ? extension - kPesFixedExtensionLength : 0);
  header.pts = DecodeTicks(bytes.subspan<kPesPts, 5>());
  header.dts = DecodeTicks(bytes.subspan<kPesDts, 5>());
  header.previousSize = DecodeProtectedSize(bytes.subspan<kPesPreviousSize, 3>());
  header.size = DecodeProtectedSize(bytes.subspan<kPesSize, 3>());
  header.frameInfo = GetU8(bytes, kPesFrameInfo);
  header.streamInfo = GetU8(bytes, kPesStreamInfo);
  header.padInfo = GetU8(bytes, kPesPadInfo);
  header.date = GetLE16(bytes, kPesDate);
  return header;
}

bool HasStartCode(ConstBytes bytes) {
  return bytes.size() >= 3 && GetBE16(bytes, 0) == 0 && GetU8(bytes, 2) == 1;
}

void PatchPreviousSize(PesHeaderBytes bytes, std::uint32_t previousSize) {
  EncodeProtectedSize(previousSize, bytes.subspan<kPesPreviousSize, 3>());
}

void PatchStream(PesHeaderBytes bytes, std::uint8_t streamId, std::uint8_t addedFlags,
                 std::uint8_t streamInfo) {
  PutU8(bytes, kPesStreamId, streamId);
  PutU8(bytes, kPesFrameInfo, GetU8(bytes, kPesFrameInfo) | (addedFlags & kEventFlagsMask));
  PutU8(bytes, kPesStreamInfo, streamInfo);
}

void EncodeProtectedSize(std::uint32_t size, std::span<std::byte, 3> bytes) {
  PutU8(bytes, 0, ((size >> 15) & 0x7Fu) | 0x80u);
  PutU8(bytes, 1, ((size >> 8) & 0x07u) | 0x08u | ((size >> 7) & 0xF0u));
  PutU8(bytes, 2, size);
}

std::uint32_t DecodeProtectedSize(std::span<const std::byte, 3> bytes) {
  const std::uint32_t high = GetU8(bytes, 0) & 0x7Fu;
  const std::uint32_t middle = GetU8(bytes, 1);
  return high << 15 | (middle >> 4) << 11 | (middle & 7u) << 8 | GetU8(bytes, 2);
}

void EncodeTicks(std::uint64_t ticks, std::span<std::byte, 5> bytes) {
  const auto high = static_cast<std::uint32_t>(ticks >> 22);  // the 11 bits from bit 22 on
  const auto low = static_cast<std::uint32_t>(ticks & 0x3FFFFFu);
  PutU8(bytes, 0, ((high >> 7) & 0x0Eu) | 0x31u);
  PutU8(bytes, 1, high);
  PutU8(bytes, 2, (low >> 14) | 1u);
  PutU8(bytes, 3, low >> 7);
  PutU8(bytes, 4, (low << 1) | 1u);
}

std::uint64_t DecodeTicks(std::span<const std::byte, 5> bytes) {
  return std::uint64_t{GetU8(bytes, 0) & 0x0Eu} << 29 | std::uint64_t{GetU8(bytes, 1)} << 22 |
         std::uint64_t{GetU8(bytes, 2) & 0xFEu} << 14 | std::uint64_t{GetU8(bytes, 3)} << 7 |
         std::uint64_t{GetU8(bytes, 4)} >> 1;
}

void EncodeUserData(ConstBytes data, MutableBytes encoded) {
  std::size_t to = 0;
  for (std::size_t from = 0; from + 3 <= data.size(); from += 3, to += 4) {
    const std::uint32_t second = GetU8(data, from + 1);
    PutU8(encoded, to, GetU8(data, from));
    PutU8(encoded, to + 1, second | 1u);
    PutU8(encoded, to + 2,
          static_cast<std::uint32_t>(GetU8(data, from + 2) >> 1) | (second & 1u) << 7);
    PutU8(encoded, to + 3, 1);
  }
  std::ranges::fill(encoded.subspan(to), std::byte{0});
}

std::size_t DecodeUserData(ConstBytes encoded, MutableBytes data) {
  std::size_t to = 0;
  for (std::size_t from = 0; from + 4 <= encoded.size() && to + 3 <= data.size();
       from += 4, to += 3) {
    const std::uint32_t second = GetU8(encoded, from + 1);
    const std::uint32_t third = GetU8(encoded, from + 2);
    PutU8(data, to, GetU8(encoded, from));
    PutU8(data, to + 1, (second & 0xFEu) | third >> 7);
    PutU8(data, to + 2, (third & 0xFEu) << 1);
  }
  return to;
}

}  // namespace qv::kelvo
