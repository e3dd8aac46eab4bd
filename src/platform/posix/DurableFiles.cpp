#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/Posix.h"

namespace qv::kelvo {
namespace {

constexpr mode_t kNewFileMode = 0644;

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Opens `path` for the time of one call; without waiting, should it be a pipe.
template <class Call>
int WithDescriptor(const std::string& path, int flags, Call call) {
  const int fd = RetryInterrupted(
      [&] { return open(path.c_str(), flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); });
  if (fd < 0) return errno;
  const int error = RetryInterrupted([&] { return call(fd); }) == 0 ? 0 : errno;
  close(fd);
  return error;
}

// Makes the names in a directory durable; 0 where the file system can't sync directories.
int SyncDirectory(const std::string& path) {
  const int error = WithDescriptor(path, O_DIRECTORY, fsync);
  return error == EINVAL || error == ENOTSUP ? 0 : error;
}

// Opens an empty file that no other process saves to at the same time.
int OpenUnshared(const std::string& path, int& fd) {
  fd = RetryInterrupted(
      [&] { return open(path.c_str(), O_WRONLY | O_CREAT | O_DSYNC | O_CLOEXEC, kNewFileMode); });
  if (fd < 0) return errno;
  const bool taken = flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  const int error = taken || ftruncate(fd, 0) != 0 ? errno : 0;
  if (error != 0) close(fd);
  return error;
}

// For file systems without an exclusive rename: not atomic, but no second process saves here.
int RenameUnlessThere(const std::string& from, const std::string& to) {
  struct stat status {};
  if (lstat(from.c_str(), &status) != 0) return errno;
  if (lstat(to.c_str(), &status) == 0) return EEXIST;
  if (errno != ENOENT) return errno;
  return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

class DurableFilesOnPosix : public DurableFiles {
 public:
  WriteResult WriteNew(const std::string& path, std::string_view content) override {
    WriteResult result;
    int fd = -1;
    if (result.error = OpenUnshared(path, fd); result.error != 0) {
      result.step = WriteStep::Create;
      return result;
    }
    const ssize_t count =
        RetryInterrupted([&] { return write(fd, content.data(), content.size()); });
    if (count < 0) {
      result.step = WriteStep::Write;
      result.error = errno;
    } else {
      result.written = static_cast<std::size_t>(count);
    }
    if (close(fd) != 0 && errno != EINTR && result.step == WriteStep::Done) {
      result.step = WriteStep::Close;
      result.error = errno;
    }
    return result;
  }

  int Rename(const std::string& from, const std::string& to) override {
    int error = 0;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
      error = errno;
      if (error == EINVAL || error == ENOSYS) error = RenameUnlessThere(from, to);
    }
    if (error != 0) return error;
    error = SyncDirectory(ParentOf(to));
    // What is told as failed has not happened, or a save would go on from the wrong names.
    if (error != 0) (void)RenameUnlessThere(to, from);
    return error;
  }

  int Replace(const std::string& from, const std::string& to) override {
    return rename(from.c_str(), to.c_str()) == 0 ? SyncDirectory(ParentOf(to)) : errno;
  }

  int Remove(const std::string& path) override { return unlink(path.c_str()) == 0 ? 0 : errno; }
};

class DiskSyncOnPosix : public DiskSync {
 public:
  int Start(const std::string& path) override {
    return WithDescriptor(path, 0, [](int fd) {
      (void)sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);  // a hint: Finish does what counts
      return 0;
    });
  }

  int Finish(const std::string& path) override { return WithDescriptor(path, 0, fdatasync); }

  int FinishDirectory(const std::string& path) override { return SyncDirectory(path); }
};

}  // namespace

DurableFiles& PosixDurableFiles() {
  static DurableFilesOnPosix files;
  return files;
}

DiskSync& PosixDiskSync() {
  static DiskSyncOnPosix sync;
  return sync;
}

}  // namespace qv::kelvo
