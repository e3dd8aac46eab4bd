#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace qv::kelvo {

using ConstBytes = std::span<const std::byte>;
using MutableBytes = std::span<std::byte>;

// Outcome of a read or write. `bytes` is what was moved; `error` is 0 or the system's error number.
// A transfer may run short without an error (end of file, disk full): compare `bytes`.
struct IoResult {
  std::size_t bytes = 0;
  int error = 0;
};

// What one write may gather.
inline constexpr std::size_t kMaxWriteParts = 256;

// Tells one state of a file from another, so that what was read of it can be kept. The number tells
// a file from another one that has taken its name with the same size at the same time.
struct FileStamp {
  std::uint64_t size = 0;      // bytes
  std::int64_t changedNs = 0;  // when it was changed last, since 1970; 0 when that can't be told
  std::uint64_t number = 0;    // of the file within its file system, where it has one

  [[nodiscard]] bool IsKnown() const { return changedNs != 0; }
  bool operator==(const FileStamp&) const = default;
};

// One open media or index file. One thread at a time. All offsets are bytes from the file's start.
// The destructor closes.
class MediaFile {
 public:
  virtual ~MediaFile() = default;

  // Reads at `offset` until `buffer` is full, the file ends or an error occurs.
  [[nodiscard]] virtual IoResult ReadAt(std::uint64_t offset, MutableBytes buffer) = 0;

  // Writes `parts` one behind the other at `offset`, in one system call where the platform has one.
  // At most kMaxWriteParts; empty parts are allowed. Stops at the first error or short write, which
  // it doesn't retry. `bytes` counts over all parts.
  [[nodiscard]] virtual IoResult WriteAt(std::uint64_t offset,
                                         std::span<const ConstBytes> parts) = 0;

  // Current size in bytes; returns 0 or the system's error number.
  [[nodiscard]] virtual int Size(std::uint64_t& bytes) = 0;

  // The state of the file when it was opened; may be unknown.
  [[nodiscard]] virtual FileStamp OpenedAs() const { return {}; }

  // Creation time in seconds since 1970 UTC (the last change where the file system keeps no
  // creation time); returns 0 or the system's error number.
  [[nodiscard]] virtual int CreationTime(std::int64_t& seconds) = 0;

  // Cuts or extends the file; new bytes read as 0. Returns 0 or the system's error number.
  [[nodiscard]] virtual int SetSize(std::uint64_t bytes) = 0;

  // Closes early to learn the outcome: 0 or the system's error number. Closing again returns 0;
  // reads and writes fail from then on.
  virtual int Close() = 0;
};

enum class OpenMode {
  Read,              // must exist, read only
  CreateOrTruncate,  // read and write, emptied if it exists, mode 0644
  CreateOrKeep       // read and write, with what it holds if it exists, mode 0644
};

// Opens media files shared: others may read and write the same file meanwhile, as searches do with
// what is being recorded. What is written reaches the system, and so survives the process;
// WriteBack sees to the disk.
class MediaFiles {
 public:
  virtual ~MediaFiles() = default;

  // On success fills `file` and returns 0; otherwise leaves it null and returns the system's error
  // number. A directory doesn't open, nor does a pipe that somebody has put into a tree; it is
  // never waited for. `path` is UTF-8.
  [[nodiscard]] virtual int Open(const std::string& path, OpenMode mode,
                                 std::unique_ptr<MediaFile>& file) = 0;

  // The same for reading what a listing of its directory told of as a file: a platform needn't look
  // at it again. Then its state is unknown, and if it has become something else, reading fails.
  [[nodiscard]] virtual int OpenListed(const std::string& path, std::unique_ptr<MediaFile>& file) {
    return Open(path, OpenMode::Read, file);
  }

  // The state of a file, which isn't opened for it. Unknown for one that isn't there.
  [[nodiscard]] virtual FileStamp StampOf(const std::string&) { return {}; }

  // The same of several files of `directory`, which ends with a separator; `stamps` is as long as
  // `names`. A platform may look from within the directory, which is faster.
  virtual void StampsOf(const std::string& directory, std::span<const std::string> names,
                        std::span<FileStamp> stamps) {
    for (std::size_t i = 0; i < names.size(); ++i) stamps[i] = StampOf(directory + names[i]);
  }

  // The same for one thread that opens one file after the other of a directory, and then of the
  // next: the platform holds the directory meanwhile, so as not to go there for each. Null where it
  // can't.
  [[nodiscard]] virtual std::unique_ptr<MediaFiles> ByDirectory() { return nullptr; }
};

}  // namespace qv::kelvo
