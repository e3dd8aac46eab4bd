#pragma once

#include <string>

#include "nvrhost/RecordOptions.h"

namespace nvrhost {

// Runs `nvrhost record`: loads the plug-in, gives it the cameras' frames, shows what became of
// them. Returns the exit code: 0, or 1 if a buffer was lost or released twice or the files disagree
// with what was given. Throws std::exception with a message for the user. Changes the working
// directory.
[[nodiscard]] int Record(RecordOptions options, const std::string& programPath);

}  // namespace nvrhost
