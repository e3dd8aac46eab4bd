#pragma once

#include "platform/Clock.h"
#include "platform/Directory.h"
#include "platform/Drives.h"
#include "platform/DurableFile.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// The operating system as the rest of the program sees it. Passed down from the plug-in's Load;
// a test passes its own.
struct Platform {
  Clock& clock;
  Drives& drives;
  Directories& directories;
  MediaFiles& mediaFiles;
  DurableFiles& durableFiles;
};

// The real one. Lives as long as the process.
[[nodiscard]] Platform& SystemPlatform();

// `/` or `\`: the separator of this platform's paths.
extern const char kPathSeparator;

}  // namespace qv::kelvo
