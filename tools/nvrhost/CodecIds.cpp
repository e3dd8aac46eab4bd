#include "nvrhost/CodecIds.h"

#include "hostkit/Codecs.h"

namespace nvrhost {

AVCodecID VideoCodecId(int standard) {
  switch (standard) {
    case hostkit::kMpeg4:
      return AV_CODEC_ID_MPEG4;
    case hostkit::kMpeg2:
      return AV_CODEC_ID_MPEG2VIDEO;
    case hostkit::kMjpeg:
      return AV_CODEC_ID_MJPEG;
    case hostkit::kH264:
      return AV_CODEC_ID_H264;
    case hostkit::kH265:
      return AV_CODEC_ID_HEVC;
    default:
      return AV_CODEC_ID_NONE;
  }
}

AVCodecID AudioCodecId(int standard) {
  switch (standard) {
    case hostkit::kG711Ulaw:
      return AV_CODEC_ID_PCM_MULAW;
    case hostkit::kG711Alaw:
      return AV_CODEC_ID_PCM_ALAW;
    case hostkit::kAac:
      return AV_CODEC_ID_AAC;
    case hostkit::kMpegAudio:
      return AV_CODEC_ID_MP2;
    default:
      return AV_CODEC_ID_NONE;
  }
}

}  // namespace nvrhost
