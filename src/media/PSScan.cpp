// The reader without an index: frames found by walking the media file from header to header.

#include <algorithm>

#include "media/FrameTime.h"
#include "media/PSReader.h"

namespace qv::kelvo {

void PSReader::ScanMedia() {
  if (mediaFile->CreationTime(creationSeconds) != 0) creationSeconds = 0;
  std::uint64_t position = dataStart;
  std::array<std::byte, kPesHeaderSize> bytes;
  std::array<std::uint16_t, kStreamCount> groupFrames{};
  while (tables.header.frameCount != kNoFrame) {
    const IoResult result = mediaFile->ReadAt(position, bytes);
    NoteRefusal(result.error);
    if (result.error != 0 || result.bytes != bytes.size()) break;
    PsiFrameRecord record;
    if (!ScanFrame(bytes, position, record)) break;
    std::uint16_t& group = groupFrames[record.stream];
    group = (record.frameInfo & kFrameTypeMask) >= kFrameP ? static_cast<std::uint16_t>(group + 1)
                                                           : std::uint16_t{0};
    record.groupFrame = group;
    PsiStreamRecord& stream = tables.streams[record.stream];
    if (stream.frameCount == 0) {
      stream.channel = ChannelOf(record.streamInfo);
      stream.encoder = EncoderOf(record.streamInfo);
    }
    memoryStreamFrames[record.stream].push_back(tables.header.frameCount);
    memoryFrames.push_back(record);
    tables.Add(record);
    position += record.Size();
  }
  // Runs are told of files with an index only.
  tables.runs.Clear();
}

// False for a header that can't be a frame's.
bool PSReader::ScanFrame(ConstPesHeaderBytes bytes, std::uint64_t position,
                         PsiFrameRecord& record) {
  const PesHeader header = DecodePesHeader(bytes);
  const std::uint64_t units = (position - dataStart) / kFrameAlignment;
  if (!IsFrameSize(header.size) || units > 0xFFFFFFFFu) return false;
  record.stream = StreamOfId(header.streamId);
  record.frameInfo = header.frameInfo;
  record.streamInfo = header.streamInfo;
  record.SetSize(header.size);
  record.offsetUnits = static_cast<std::uint32_t>(units);
  const PackedTime time = FrameTime(bytes, creationSeconds);
  record.date = time.date;
  record.ms = time.ms;
  return true;
}

}  // namespace qv::kelvo
