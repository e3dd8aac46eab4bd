#pragma once

#include <cstdint>

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {

// Tells I, P and B pictures of one coded stream apart by its own headers. Packets come in coded
// order and whole, H.264 and H.265 as Annex B.
class PictureTypes {
 public:
  explicit PictureTypes(AVCodecID codec);
  // KELVO_FRAME_I for a picture that decoding can start at, else P or B.
  [[nodiscard]] std::uint8_t TypeOf(const AVPacket& packet);

 private:
  CodecPtr context;
  ParserPtr parser;  // null for codecs that FFmpeg has no parser for
};

}  // namespace nvrhost
