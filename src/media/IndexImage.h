#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "media/PsFormat.h"
#include "media/PsiFormat.h"

namespace qv::kelvo {

using PsiStreamRecords = std::array<PsiStreamRecord, kStreamCount>;

// An index, byte for byte as a writer leaves it that comes to its end.
struct IndexImage {
  std::vector<std::byte> bytes;
  std::size_t frameCount = 0;
  std::size_t runCount = 0;
};

// The index of `frames`, which stand in the order of the file and whose streams are below 32. Sets
// their links and group counts, too. `setup` tells what a file's maker set when it began and no
// frame tells in full, the channel and encoder of each stream; null when nobody knows. A stream
// that is not in `named`, a bit each, has neither. The frames of a file for one input tell another
// number as the encoder: `wideInput` is false for those.
[[nodiscard]] IndexImage MakeIndex(std::vector<PsiFrameRecord>& frames,
                                   const PsiStreamRecords* setup, std::uint32_t named,
                                   bool wideInput);

// Streams that the map's entries, 32 of them, tell of: the file has a place for them. All where
// there is no map.
[[nodiscard]] std::uint32_t NamedStreams(std::span<const PsStreamDescriptor> map);

}  // namespace qv::kelvo
