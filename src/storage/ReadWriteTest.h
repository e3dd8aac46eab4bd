#pragma once

#include <cstdint>
#include <string>

#include "platform/MediaFile.h"

namespace qvsvr::kelvo {

// Finds out whether a drive can be written and read back. Worker thread only.
class ReadWriteTest {
 public:
  // Borrows `mediaFiles` for its life.
  explicit ReadWriteTest(qv::kelvo::MediaFiles& mediaFiles) : files(mediaFiles) {}

  // Writes a file "test.bin" into the directory "kelvo" at the drive's root, which must exist, and
  // compares what is read back. False, with the cause in the log, when anything fails; a directory
  // with something else in it is a failure. The file stays until the next test.
  bool Run(const std::string& driveName);

 private:
  qv::kelvo::MediaFiles& files;
  // Another one each time, so that the file of an earlier test doesn't pass.
  std::uint8_t testPattern = 0;
};

}  // namespace qvsvr::kelvo
