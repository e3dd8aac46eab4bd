#pragma once

#include <cstdint>
#include <string>

#include "psinfo/Finding.h"

namespace psinfo {

struct CheckResult {
  std::size_t frames = 0;        // readable ones in the media file
  std::uint64_t unreadable = 0;  // bytes of the media file that belong to no frame
  Findings findings;             // none: the pair keeps all rules of the format
};

// Holds a media file and its index against the rules of the format and against each other. Throws
// std::runtime_error when the media file can't be read.
[[nodiscard]] CheckResult CheckRecording(const std::string& mediaPath);

// How a new index came out.
struct RebuildResult {
  std::size_t frames = 0, runs = 0;
  std::uint64_t unreadable = 0;
  std::string indexPath;
};

// Makes the index of a media file anew from its frames and puts it in place of the old one, which
// stays until the new one is whole. Throws std::runtime_error.
RebuildResult RebuildIndex(const std::string& mediaPath);

}  // namespace psinfo
