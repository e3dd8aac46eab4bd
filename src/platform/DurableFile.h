#pragma once

#include <string>
#include <string_view>

namespace qv::kelvo {

// File steps of a save that must survive a crash or power cut between any two of them (XmlDocument
// puts them together). What was written, renamed or replaced is on disk when the call returns 0; a
// removal isn't waited for, since what it leaves behind harms nobody. Each returns 0 or the
// system's error number. They wait for the disk and so have no place on the road of a frame. One
// thread at a time per path; paths are UTF-8.
class DurableFiles {
 public:
  virtual ~DurableFiles() = default;

  // Where WriteNew stopped.
  enum class WriteStep { Done, Create, Write, Close };
  struct WriteResult {
    WriteStep step = WriteStep::Done;
    int error = 0;            // of the failed step
    std::size_t written = 0;  // bytes that reached the file
  };

  // Creates `path` anew (replacing what is there), unshared, and writes `content` in one call; the
  // data is on disk when it returns.
  [[nodiscard]] virtual WriteResult WriteNew(const std::string& path, std::string_view content) = 0;

  // Renames and makes the new name durable; after a failure the old name stands. Fails if `to`
  // exists.
  [[nodiscard]] virtual int Rename(const std::string& from, const std::string& to) = 0;

  // Renames in one step over what `to` is, if anything.
  [[nodiscard]] virtual int Replace(const std::string& from, const std::string& to) = 0;

  // Also a file that is marked read-only.
  [[nodiscard]] virtual int Remove(const std::string& path) = 0;
};

}  // namespace qv::kelvo
