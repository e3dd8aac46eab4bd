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

}  // namespace psinfo
