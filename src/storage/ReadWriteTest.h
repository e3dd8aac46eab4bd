#pragma once

#include <cstdint>
#include <string>

#include "platform/Platform.h"

namespace qvsvr::kelvo {

// Finds out whether a drive can be written and read back. Worker thread only.
class ReadWriteTest {
 public:
  // Borrows the platform for its life.
  explicit ReadWriteTest(const qv::kelvo::Platform& system) : platform(system) {}

  // Writes a file "test.bin" into the directory "kelvo" at the drive's root, which must exist, and
  // compares what is read back. False, with the cause in the log, when anything fails; a directory
  // with something else in it is a failure. What another program holds is waited for, some seconds
  // at most. The file stays until the next test.
  bool Run(const std::string& driveName);

 private:
  [[nodiscard]] bool Prepare(const std::string& directory, const std::string& path);

  const qv::kelvo::Platform& platform;
  // Another one each time, so that the file of an earlier test doesn't pass.
  std::uint8_t testPattern = 0;
};

}  // namespace qvsvr::kelvo
