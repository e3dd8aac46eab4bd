#pragma once

#include <string_view>

#include "platform/Clock.h"
#include "platform/Directory.h"
#include "platform/DiskSync.h"
#include "platform/Drives.h"
#include "platform/DurableFile.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// The operating system as the rest of the program sees it: six seams, passed down from the
// plug-in's Load by reference, so that a test can move time, fill a disk or let the third write
// fail. Beside them stand the plain functions of platform/Files.h.
struct Platform {
  Clock& clock;
  Drives& drives;
  Directories& directories;
  MediaFiles& mediaFiles;
  DurableFiles& durableFiles;
  DiskSync& diskSync;
};

// The real one. Lives as long as the process.
[[nodiscard]] Platform& SystemPlatform();

// `/` or `\`: the separator that this platform's paths are built with.
extern const char kPathSeparator;

// The characters that separate the parts of a path from outside: `/` on every system.
extern const std::string_view kPathSeparators;
[[nodiscard]] inline bool IsPathSeparator(char c) {
  return c == '/' || c == kPathSeparator;
}

// Brings the memory at `place` towards the processor, which is going to change it. A hint: nothing
// happens where the compiler has none.
inline void PrefetchToChange([[maybe_unused]] const void* place) {
#if defined(__GNUC__)
  __builtin_prefetch(place, 1);
#endif
}

}  // namespace qv::kelvo
