#pragma once

#include "psinfo/Layout.h"
#include "psinfo/Recording.h"

namespace psinfo {

// Holds the bytes of an index against the frames of the media file, all of which follows from them
// but the channels and encoders. Sets the recording's runs and its frames' group counts, too.
void CheckIndex(const Bytes& index, Expected expected, Recording& recording);

}  // namespace psinfo
