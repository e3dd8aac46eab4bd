#pragma once

#include "platform/MediaFile.h"
#include "psinfo/Layout.h"
#include "psinfo/Recording.h"

namespace psinfo {

// Takes the head and the frames of a media file of `size` bytes into `recording`, by its own
// headers. Where one is damaged the walk goes on at the next place that looks like a frame; with
// Expected::Unclosed it ends there.
void WalkMedia(qv::kelvo::MediaFile& file, std::uint64_t size, Expected expected,
               Recording& recording);

}  // namespace psinfo
