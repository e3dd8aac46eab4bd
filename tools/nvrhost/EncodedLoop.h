#pragma once

#include <string>

#include "nvrhost/Clip.h"

namespace nvrhost {

// Material that FFmpeg's test sources draw and its encoders encode, once; a track is then repeated
// for as long as a recording lasts. Both throw std::runtime_error if FFmpeg can't do it.

struct VideoSettings {
  int codec = 0;  // hostkit::VideoCodec
  int width = 640, height = 480;
  double fps = 25;
  int group = 25;       // frames from one I frame to the next
  int bFrames = 2;      // between two others; MJPEG has none
  int kilobits = 0;     // per second; 0 takes what suits the codec
  double seconds = 10;  // rounded up to whole groups, each of which stands alone
  int pattern = 0;      // any number: each gives another picture
  std::string label;    // written into the picture where FFmpeg has the font for it
};
[[nodiscard]] Track EncodeVideo(const VideoSettings& settings);

// A tone with a beep each second, AAC with ADTS headers or G.711.
[[nodiscard]] Track EncodeAudio(int codec, double seconds, int pitchHz);

}  // namespace nvrhost
