#pragma once

#include <array>
#include <string_view>

namespace hostkit {

// The codec numbers of the simulated host, as `Standard` in its configuration. A file stores them
// as stream type: number + 128 for video, number + 144 for audio. The plug-in gives them no
// meaning.
enum VideoCodec { kMpeg4 = 1, kMpeg2 = 2, kMjpeg = 3, kH264 = 4, kH265 = 5 };
enum AudioCodec { kG711Ulaw = 1, kAac = 2, kG711Alaw = 3, kMpegAudio = 4 };

inline constexpr std::array<std::string_view, 6> kVideoCodecNames{"unused", "MPEG-4", "MPEG-2",
                                                                  "MJPEG",  "H.264",  "H.265"};
inline constexpr std::array<std::string_view, 5> kAudioCodecNames{"unused", "G.711 u-law", "AAC",
                                                                  "G.711 A-law", "MPEG audio"};

[[nodiscard]] constexpr std::string_view VideoCodecName(unsigned number) {
  return number < kVideoCodecNames.size() ? kVideoCodecNames[number] : "unknown codec";
}
[[nodiscard]] constexpr std::string_view AudioCodecName(unsigned number) {
  return number < kAudioCodecNames.size() ? kAudioCodecNames[number] : "unknown codec";
}

}  // namespace hostkit
