#include "nvrhost/PictureTypes.h"

#include "kelvo/host_abi.h"

namespace nvrhost {

PictureTypes::PictureTypes(AVCodecID codec)
    : context(CheckMade(avcodec_alloc_context3(nullptr), "out of memory")),
      parser(av_parser_init(codec)) {
  context->codec_id = codec;
  if (parser) parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

std::uint8_t PictureTypes::TypeOf(const AVPacket& packet) {
  int picture = AV_PICTURE_TYPE_NONE;
  if (parser) {
    std::uint8_t* unused = nullptr;
    int unusedSize = 0;
    av_parser_parse2(parser.get(), context.get(), &unused, &unusedSize, packet.data, packet.size,
                     packet.pts, packet.dts, packet.pos);
    picture = parser->pict_type;
  }
  if ((packet.flags & AV_PKT_FLAG_KEY) != 0) return KELVO_FRAME_I;
  return picture == AV_PICTURE_TYPE_B ? KELVO_FRAME_B : KELVO_FRAME_P;
}

}  // namespace nvrhost
