#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "platform/MediaFile.h"

namespace qvsvr::kelvo {

// The media files of one search, for reading: any number, of which few have a descriptor at a time.
// The one that wasn't read for the longest gives up its own and opens again when it is read.
// Playback merges all files that overlap, and with many cameras these are more than a process may
// have open; the host needs descriptors, too. One thread at a time; outlives the files opened.
class FilePool : public qv::kelvo::MediaFiles {
 public:
  // Enough to read 32 recordings side by side without opening one twice.
  static constexpr std::size_t kMaxOpen = 64;

  explicit FilePool(qv::kelvo::MediaFiles& system) : files(system) {}

  [[nodiscard]] int Open(const std::string& path, qv::kelvo::OpenMode mode,
                         std::unique_ptr<qv::kelvo::MediaFile>& file) override;

 private:
  class PooledFile;

  [[nodiscard]] int OpenReal(PooledFile& file);
  void CloseOldest();

  qv::kelvo::MediaFiles& files;
  std::list<PooledFile*> open;  // the one that was read last at the end
};

}  // namespace qvsvr::kelvo
