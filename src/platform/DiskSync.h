#pragma once

#include <string>

namespace qv::kelvo {

// Sees to it that what was written reaches the disk. Each call opens the file by itself, for its
// own time only, so that whoever writes it needn't know and may remove it meanwhile; it returns 0
// or the system's error number, of which IsMissing (platform/Files.h) tells a file that has gone.
// Paths are UTF-8. Any thread; blocks as long as the disk takes.
class DiskSync {
 public:
  virtual ~DiskSync() = default;

  // Starts to write back what the file holds, where the system lets one start without waiting.
  [[nodiscard]] virtual int Start(const std::string& path) = 0;

  // Returns when the file's bytes and size are on disk.
  [[nodiscard]] virtual int Finish(const std::string& path) = 0;

  // Returns when the names in a directory are on disk; at once where the system sees to it itself.
  [[nodiscard]] virtual int FinishDirectory(const std::string& path) = 0;
};

}  // namespace qv::kelvo
