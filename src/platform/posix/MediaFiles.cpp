#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>

#include "platform/posix/Posix.h"

namespace qv::kelvo {

namespace {

constexpr mode_t kNewFileMode = 0644;

// The time of change and not that of the content, which any program may set.
FileStamp StampIn(const struct stat& status) {
  const std::int64_t seconds = status.st_ctim.tv_sec;
  return {static_cast<std::uint64_t>(status.st_size),
          seconds * 1'000'000'000 + status.st_ctim.tv_nsec, status.st_ino};
}

class MediaFileOnPosix : public MediaFile {
 public:
  explicit MediaFileOnPosix(int descriptor) : fd(descriptor) {}
  ~MediaFileOnPosix() override { Close(); }
  MediaFileOnPosix(const MediaFileOnPosix&) = delete;
  MediaFileOnPosix& operator=(const MediaFileOnPosix&) = delete;

  IoResult ReadAt(std::uint64_t offset, MutableBytes buffer) override {
    IoResult result;
    while (result.bytes < buffer.size()) {
      const MutableBytes rest = buffer.subspan(result.bytes);
      const off_t at = static_cast<off_t>(offset + result.bytes);
      const ssize_t count =
          RetryInterrupted([&] { return pread(fd, rest.data(), rest.size(), at); });
      if (count < 0) result.error = errno;
      if (count <= 0) break;
      result.bytes += static_cast<std::size_t>(count);
    }
    return result;
  }

  IoResult WriteAt(std::uint64_t offset, std::span<const ConstBytes> parts) override {
    if (parts.size() > kMaxWriteParts) return {0, EINVAL};
    std::array<iovec, kMaxWriteParts> vectors;
    int used = 0;
    for (const ConstBytes part : parts) {
      if (part.empty()) continue;
      // The call takes mutable memory for the sake of its reading twin; it doesn't write there.
      vectors[static_cast<std::size_t>(used++)] = {const_cast<std::byte*>(part.data()),
                                                   part.size()};
    }
    if (used == 0) return {};
    const ssize_t count = RetryInterrupted(
        [&] { return pwritev(fd, vectors.data(), used, static_cast<off_t>(offset)); });
    if (count < 0) return {0, errno};
    return {static_cast<std::size_t>(count), 0};
  }

  int Size(std::uint64_t& bytes) override {
    struct stat status {};
    if (fstat(fd, &status) != 0) return errno;
    bytes = static_cast<std::uint64_t>(status.st_size);
    return 0;
  }

  FileStamp OpenedAs() const override { return opened; }

  int CreationTime(std::int64_t& seconds) override {
    struct statx status {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_BTIME | STATX_MTIME, &status) != 0) return errno;
    const bool born = (status.stx_mask & STATX_BTIME) != 0;
    seconds = born ? status.stx_btime.tv_sec : status.stx_mtime.tv_sec;
    return 0;
  }

  int SetSize(std::uint64_t bytes) override {
    const int done = RetryInterrupted([&] { return ftruncate(fd, static_cast<off_t>(bytes)); });
    return done == 0 ? 0 : errno;
  }

  int Close() override {
    if (fd < 0) return 0;
    const int closing = fd;
    fd = -1;
    // An interrupted close has closed all the same.
    return close(closing) == 0 || errno == EINTR ? 0 : errno;
  }

  FileStamp opened;

 private:
  int fd;
};

int OpenDirectory(const std::string& path) {
  return open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

class MediaFilesOnPosix : public MediaFiles {
 public:
  int Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) override {
    return OpenAt(AT_FDCWD, path.c_str(), mode, Look::Yes, file);
  }

  FileStamp StampOf(const std::string& path) override { return StampAt(AT_FDCWD, path); }

  void StampsOf(const std::string& directory, std::span<const std::string> names,
                std::span<FileStamp> stamps) override {
    const int fd = OpenDirectory(directory);
    for (std::size_t i = 0; i < names.size(); ++i) {
      stamps[i] = fd < 0 ? FileStamp{} : StampAt(fd, names[i]);
    }
    if (fd >= 0) (void)close(fd);
  }

  std::unique_ptr<MediaFiles> ByDirectory() override;

 protected:
  enum class Look { Yes, No };  // whether it is a file, and in what state

  static int OpenAt(int directory, const char* path, OpenMode mode, Look look,
                    std::unique_ptr<MediaFile>& file) {
    file.reset();
    // A pipe without a writer must not hold up the caller; regular files don't mind.
    constexpr int kAlways = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    int flags = kAlways | (mode == OpenMode::Read ? O_RDONLY : O_RDWR | O_CREAT);
    if (mode == OpenMode::CreateOrTruncate) flags |= O_TRUNC;
    const int fd = RetryInterrupted([&] { return openat(directory, path, flags, kNewFileMode); });
    if (fd < 0) return errno;
    auto opened = std::make_unique<MediaFileOnPosix>(fd);
    if (look == Look::Yes) {
      struct stat status {};
      if (fstat(fd, &status) != 0) return errno;
      if (!S_ISREG(status.st_mode)) return ENOENT;
      opened->opened = StampIn(status);
    }
    file = std::move(opened);
    return 0;
  }

 private:
  static FileStamp StampAt(int directory, const std::string& path) {
    struct stat status {};
    if (fstatat(directory, path.c_str(), &status, 0) != 0 || !S_ISREG(status.st_mode)) return {};
    return StampIn(status);
  }
};

// Holds the directory of the file that was opened last.
class FilesByDirectory : public MediaFilesOnPosix {
 public:
  FilesByDirectory() = default;
  ~FilesByDirectory() override { LetGo(); }
  FilesByDirectory(const FilesByDirectory&) = delete;
  FilesByDirectory& operator=(const FilesByDirectory&) = delete;

  int Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) override {
    return OpenHere(path, mode, Look::Yes, file);
  }

  int OpenListed(const std::string& path, std::unique_ptr<MediaFile>& file) override {
    return OpenHere(path, OpenMode::Read, Look::No, file);
  }

 private:
  int OpenHere(const std::string& path, OpenMode mode, Look look,
               std::unique_ptr<MediaFile>& file) {
    const std::size_t nameAt = path.rfind('/') + 1;
    if (directory != std::string_view(path).substr(0, nameAt)) {
      LetGo();
      directory = path.substr(0, nameAt);
      fd = OpenDirectory(directory);
    }
    // Why it can't be held, the whole path tells as well.
    return fd < 0 ? OpenAt(AT_FDCWD, path.c_str(), mode, look, file)
                  : OpenAt(fd, path.c_str() + nameAt, mode, look, file);
  }

  void LetGo() const {
    if (fd >= 0) (void)close(fd);
  }

  std::string directory;
  int fd = -1;
};

std::unique_ptr<MediaFiles> MediaFilesOnPosix::ByDirectory() {
  return std::make_unique<FilesByDirectory>();
}

}  // namespace

MediaFiles& PosixMediaFiles() {
  static MediaFilesOnPosix files;
  return files;
}

}  // namespace qv::kelvo
