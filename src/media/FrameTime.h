#pragma once

#include <cstdint>

#include "media/PackedTime.h"
#include "media/PsFormat.h"

namespace qv::kelvo {

// Older writers kept whole seconds, or no date at all, in bytes 28 to 31 of a frame, where others
// have stream info, pad info and date.
[[nodiscard]] bool IsOlderFrame(ConstPesHeaderBytes bytes);

// The time of a frame; of one without a date counted from its file's creation.
[[nodiscard]] PackedTime FrameTime(ConstPesHeaderBytes bytes, std::int64_t creationSeconds);

}  // namespace qv::kelvo
