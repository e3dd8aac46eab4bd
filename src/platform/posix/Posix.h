#pragma once

#include <cerrno>

#include "platform/Platform.h"

namespace qv::kelvo {

// The parts of SystemPlatform() on this system; each lives as long as the process.
[[nodiscard]] Drives& PosixDrives();
[[nodiscard]] Directories& PosixDirectories();
[[nodiscard]] MediaFiles& PosixMediaFiles();
[[nodiscard]] DurableFiles& PosixDurableFiles();
[[nodiscard]] DiskSync& PosixDiskSync();

// Repeats a call that returns -1 as long as a signal interrupts it: the host's signals are not ours
// to block.
template <typename Call>
auto RetryInterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

}  // namespace qv::kelvo
