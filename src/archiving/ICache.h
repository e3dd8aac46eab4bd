#pragma once

#include <cstdint>

#include "archiving/ScannedFile.h"

namespace qvArchiving {

// Keeps downloaded files within limits.
class ICache {
 public:
  virtual ~ICache() = default;

  // Takes note of a file that was downloaded; may remove others. Throws what the file system
  // throws. Any thread. The second argument may be ignored.
  virtual void Add(const ScannedFile& file, std::uint64_t hint) = 0;
};

}  // namespace qvArchiving
