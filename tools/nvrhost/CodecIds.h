#pragma once

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {

// FFmpeg's codec for a number of hostkit/Codecs.h; AV_CODEC_ID_NONE for others. MPEG audio counts
// as layer II until its own header says more.
[[nodiscard]] AVCodecID VideoCodecId(int standard);
[[nodiscard]] AVCodecID AudioCodecId(int standard);

}  // namespace nvrhost
