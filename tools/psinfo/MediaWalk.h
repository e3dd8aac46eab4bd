#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/PsFormat.h"
#include "media/PsiFormat.h"
#include "psinfo/Finding.h"

namespace psinfo {

// The frames of a media file, by its own headers.
struct MediaWalk {
  std::uint64_t size = 0;       // of the file
  std::uint64_t dataStart = 0;  // offset of the first frame
  qv::kelvo::PsFileInfo info;
  std::vector<qv::kelvo::PsStreamDescriptor> streams;  // 32, or none without a map
  // As an index holds them; the links aren't set.
  std::vector<qv::kelvo::PsiFrameRecord> frames;
  std::uint64_t unreadable = 0;  // bytes that belong to no frame
  Findings findings;
};

// Walks the whole file. Where a header is damaged the walk goes on at the next place that looks
// like a frame. Throws std::runtime_error when the file can't be read.
[[nodiscard]] MediaWalk WalkMedia(const std::string& path);

}  // namespace psinfo
