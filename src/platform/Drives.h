#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qv::kelvo {

// Bytes of a file system; `available` is what this user may still write. Nothing reads `free`,
// which counts what is kept for the system's own user, too.
struct DriveSpace {
  std::uint64_t capacity = 0;
  std::uint64_t free = 0;
  std::uint64_t available = 0;
};

// What the system tells about drives. Any thread. Paths are UTF-8; drive names end in a separator.
class Drives {
 public:
  virtual ~Drives() = default;

  // Names of the fixed drives, in the system's order. Returns 0, or the system's error number with
  // `names` holding what was gathered until then.
  [[nodiscard]] virtual int FixedDrives(std::vector<std::string>& names) = 0;

  // Where FixedDrives looks, for a log line; empty where it asks the system itself.
  [[nodiscard]] virtual std::string SearchedPlace() = 0;

  // The directory that holds the operating system; returns 0 or the system's error number.
  [[nodiscard]] virtual int SystemDirectory(std::string& path) = 0;

  // Device number of the file system below `path`; returns 0 or the system's error number.
  [[nodiscard]] virtual int DeviceNumber(const std::string& path, std::uint64_t& device) = 0;

  // Returns an empty string and fills `space`, or the system's error text.
  [[nodiscard]] virtual std::string Space(const std::string& path, DriveSpace& space) = 0;
};

}  // namespace qv::kelvo
