#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/Posix.h"

namespace qv::kelvo {

namespace {

// Opens `path` for the time of one call.
template <class Call>
int WithDescriptor(const std::string& path, int flags, Call call) {
  const int fd = RetryInterrupted(
      [&] { return open(path.c_str(), flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); });
  if (fd < 0) return errno;
  const int error = RetryInterrupted([&] { return call(fd); }) == 0 ? 0 : errno;
  close(fd);
  return error;
}

class DiskSyncOnPosix : public DiskSync {
 public:
  int Start(const std::string& path) override {
    return WithDescriptor(path, 0, [](int fd) {
      (void)sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);  // a hint: Finish does what counts
      return 0;
    });
  }

  int Finish(const std::string& path) override { return WithDescriptor(path, 0, fdatasync); }

  int FinishDirectory(const std::string& path) override {
    const int error = WithDescriptor(path, O_DIRECTORY, fsync);
    return error == EINVAL || error == ENOTSUP ? 0 : error;  // a file system that can't
  }

  bool IsMissing(int error) const override { return error == ENOENT; }
};

}  // namespace

DiskSync& PosixDiskSync() {
  static DiskSyncOnPosix sync;
  return sync;
}

}  // namespace qv::kelvo
