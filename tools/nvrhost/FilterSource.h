#pragma once

#include <string>

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {

// Raw pictures or sound out of one of FFmpeg's own sources.
class FilterSource {
 public:
  // `description` is a filter chain that begins with a source and has no sink. Throws if FFmpeg
  // can't build it.
  FilterSource(const std::string& description, AVMediaType media);
  // Sound comes in blocks of this many samples.
  void SetBlockSize(unsigned samples) { av_buffersink_set_frame_size(sink, samples); }
  [[nodiscard]] const AVFilterContext* Sink() const { return sink; }
  // The next picture or block, valid until the next call. These sources never end.
  [[nodiscard]] AVFrame* Next();

 private:
  GraphPtr graph;
  AVFilterContext* sink;
  FramePtr frame;
};

}  // namespace nvrhost
