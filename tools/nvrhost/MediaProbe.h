#pragma once

#include <cstdint>
#include <string>

namespace nvrhost {

// What FFmpeg finds in a file when it decodes the whole of it.
struct MediaProbe {
  std::string videoCodec;  // empty: no video
  std::uint64_t videoFrames = 0;
  std::uint64_t audioFrames = 0;
  double videoSeconds = 0;
  std::uint64_t errors = 0;  // packets that couldn't be decoded
};
// Throws std::runtime_error when the file can't be opened.
[[nodiscard]] MediaProbe ProbeMedia(const std::string& path);

}  // namespace nvrhost
