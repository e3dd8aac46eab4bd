#pragma once

#include <cstddef>
#include <string>

#include "nvrhost/Clip.h"

namespace nvrhost {

struct LoadedFile {
  Clip clip;
  std::string notice;  // what of the file isn't used and why; empty if nothing
};

// Reads the video and, if asked for, the audio of a user's file as a camera would deliver them: not
// encoded again, H.264 and H.265 as Annex B, AAC with ADTS headers. Begins at the first I frame and
// ends with the file, or at the I frame after `seconds` or `maxBytes`. Throws std::runtime_error.
[[nodiscard]] LoadedFile LoadFile(const std::string& path, bool withAudio, double seconds,
                                  std::size_t maxBytes);

}  // namespace nvrhost
