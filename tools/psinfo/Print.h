#pragma once

#include <string>

namespace psinfo {

// Head, streams and runs of a recording to standard output, with `frames` every frame, too: as a
// reader sees them, which makes up for a lost or unfinished index. Throws std::runtime_error when
// it can't be opened.
void PrintRecording(const std::string& mediaPath, bool frames);

}  // namespace psinfo
