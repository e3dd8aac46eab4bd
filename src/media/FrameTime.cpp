#include "media/FrameTime.h"

#include "media/ByteOrder.h"

namespace qv::kelvo {
namespace {

constexpr std::size_t kTailAt = 28;
constexpr std::uint32_t kNoDateTail = 0xFFFFFFFFu;
constexpr std::uint8_t kStreamInfoMark = 0x80;

}  // namespace

bool IsOlderFrame(ConstPesHeaderBytes bytes) {
  return GetBE32(bytes, kTailAt) == kNoDateTail || (GetU8(bytes, kTailAt) & kStreamInfoMark) == 0;
}

PackedTime FrameTime(ConstPesHeaderBytes bytes, std::int64_t creationSeconds) {
  const PesHeader header = DecodePesHeader(bytes);
  const std::uint64_t ms = header.dts / kTicksPerMs;
  if (!IsOlderFrame(bytes)) return {header.date, static_cast<std::uint32_t>(ms)};
  const std::uint32_t tail = GetBE32(bytes, kTailAt);
  const std::int64_t seconds =
      tail == kNoDateTail ? creationSeconds + static_cast<std::int64_t>(ms / 1000) : tail;
  const auto packed = Pack(seconds * 1000);
  if (!packed) return {};
  return {packed->date, packed->ms + static_cast<std::uint32_t>(ms % 1000)};
}

}  // namespace qv::kelvo
