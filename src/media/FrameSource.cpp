#include "media/FrameSource.h"

#include <algorithm>

#include "media/ByteOrder.h"
#include "media/FrameTime.h"

namespace qv::kelvo {
namespace {

constexpr std::size_t kReadAtOnce = 4096;  // what a read of a header costs anyway

}  // namespace

ConstBytes FrameSource::At(std::uint64_t offset, std::size_t length) {
  if (offset < begin || offset + length > begin + buffer.size()) {
    begin = offset;
    buffer.resize(std::max(length, kReadAtOnce));
    const IoResult result = file.ReadAt(begin, buffer);
    if (result.error != 0) error = result.error;
    buffer.resize(result.bytes);
  }
  const ConstBytes rest = ConstBytes(buffer).subspan(static_cast<std::size_t>(offset - begin));
  return rest.first(std::min(length, rest.size()));
}

const char* FrameSource::FaultAt(std::uint64_t position) {
  const ConstBytes bytes = At(position, kPesHeaderSize);
  if (bytes.size() < kPesHeaderSize) return "the file ends inside the header of a frame";
  const PesHeader header = DecodePesHeader(bytes.first<kPesHeaderSize>());
  if (!HasStartCode(bytes)) return "no 00 00 01 where a frame begins";
  if (!IsFrameSize(header.size)) return "the size of a frame is 0, or no multiple of 32";
  if (position + header.size > size) return "the file ends inside a frame";
  return nullptr;
}

bool FrameSource::EndsInZeros(std::uint64_t position) {
  constexpr std::uint32_t kLooked = 4;
  const PesHeader header = DecodePesHeader(At(position, kPesHeaderSize).first<kPesHeaderSize>());
  const std::uint32_t behindHeader =
      header.size - std::min<std::uint32_t>(header.size, kPesHeaderSize + PadCount(header.padInfo));
  const std::uint32_t looked = std::min(behindHeader, kLooked);
  const ConstBytes end = At(position + kPesHeaderSize + behindHeader - looked, looked);
  return looked != 0 && std::ranges::all_of(end, [](std::byte b) { return b == std::byte{0}; });
}

PsiFrameRecord FrameSource::RecordAt(std::uint64_t position, std::uint64_t dataStart) {
  const auto bytes = At(position, kPesHeaderSize).first<kPesHeaderSize>();
  const PesHeader header = DecodePesHeader(bytes);
  if (!created && IsOlderFrame(bytes)) {
    created = 0;
    (void)file.CreationTime(*created);
  }
  const PackedTime time = FrameTime(bytes, created.value_or(0));
  PsiFrameRecord record;
  record.stream = StreamOfId(header.streamId);
  record.frameInfo = header.frameInfo;
  record.streamInfo = header.streamInfo;
  record.SetSize(header.size);
  record.date = time.date;
  record.ms = time.ms;
  record.offsetUnits = static_cast<std::uint32_t>((position - dataStart) / kFrameAlignment);
  return record;
}

std::uint64_t FrameSource::NextPlausible(std::uint64_t position) {
  constexpr std::size_t kMarkAt = 6, kContentsAt = 7, kExtensionAt = 19;
  for (; position + kPesHeaderSize <= size; position += kFrameAlignment) {
    const ConstBytes bytes = At(position, kPesHeaderSize);
    if (bytes.size() < kPesHeaderSize) break;
    if (!HasStartCode(bytes) || GetU8(bytes, kMarkAt) != 0x80 ||
        GetU8(bytes, kContentsAt) != 0xC1 || GetU8(bytes, kExtensionAt) != 0x0F) {
      continue;
    }
    const PesHeader header = DecodePesHeader(bytes.first<kPesHeaderSize>());
    const std::uint64_t end = position + header.size;
    if (!IsFrameSize(header.size) || end > size) continue;
    if (end == size || HasStartCode(At(end, 3))) return position;
  }
  return size;
}

}  // namespace qv::kelvo
