#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "psinfo/MediaWalk.h"

namespace psinfo {

// The index that belongs to a media file, byte for byte as it lies on disk.
struct IndexImage {
  std::vector<std::byte> bytes;
  std::size_t frameCount = 0;
  std::size_t runCount = 0;
};

// Sets the links and group counts of `frames`, too.
[[nodiscard]] IndexImage MakeIndex(std::vector<qv::kelvo::PsiFrameRecord>& frames);

// Name of the field that holds byte `offset` of an index with so many frames.
[[nodiscard]] std::string FieldAt(std::size_t offset, std::size_t frameCount);
// Offset of the field's first byte.
[[nodiscard]] std::size_t FieldStart(std::size_t offset, std::size_t frameCount);

}  // namespace psinfo
