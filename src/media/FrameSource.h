#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "media/PsFormat.h"
#include "media/PsiFormat.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// The frames of a media file by their own headers, wherever one is asked for. Reads little more
// than the headers. One thread at a time.
class FrameSource {
 public:
  // Borrows `mediaFile`, of `fileSize` bytes, for its life.
  FrameSource(MediaFile& mediaFile, std::uint64_t fileSize) : file(mediaFile), size(fileSize) {}

  [[nodiscard]] std::uint64_t Size() const { return size; }
  // Of a read that failed, 0 if none has: what lies there counts as the end of the file.
  [[nodiscard]] int Error() const { return error; }

  // At most `length` bytes; fewer only at the end of the file. Valid until the next call.
  [[nodiscard]] ConstBytes At(std::uint64_t offset, std::size_t length);

  // What keeps the bytes at `position` from being a whole frame; null when nothing does.
  [[nodiscard]] const char* FaultAt(std::uint64_t position);

  // Whether the content of the frame at `position`, where FaultAt finds nothing, ends in zeros as
  // what never reached the disk does. Few frames end so by themselves.
  [[nodiscard]] bool EndsInZeros(std::uint64_t position);

  // What an index says of the frame at `position`, where FaultAt finds nothing. The links aren't
  // set.
  [[nodiscard]] PsiFrameRecord RecordAt(std::uint64_t position, std::uint64_t dataStart);

  // Where frames go on behind damage, in steps of 32 bytes from `position`: a header with all its
  // marks, whose frame is followed by another or by the end. The file's size when they don't.
  [[nodiscard]] std::uint64_t NextPlausible(std::uint64_t position);

 private:
  MediaFile& file;
  const std::uint64_t size;
  int error = 0;
  std::optional<std::int64_t> created;  // of the file, once it was needed
  std::uint64_t begin = 0;
  std::vector<std::byte> buffer;
};

}  // namespace qv::kelvo
