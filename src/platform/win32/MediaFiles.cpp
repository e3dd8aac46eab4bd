#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "platform/win32/Win32.h"

namespace qv::kelvo {

namespace {

constexpr std::size_t kMaxTransfer = INT_MAX;
constexpr std::size_t kGathered = 16'384;

// The system's error number behind a failed call of the C runtime, which tells none where it
// refused by itself.
int RuntimeError() {
  const int failed = errno;
  if (_doserrno != 0) return static_cast<int>(_doserrno);
  switch (failed) {
    case EBADF:
      return ERROR_INVALID_HANDLE;
    case ENOSPC:
      return ERROR_DISK_FULL;
    case EMFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    default:
      return ERROR_INVALID_PARAMETER;
  }
}

void ForgetErrors() {
  errno = 0;
  _doserrno = 0;
}

class MediaFileOnWin32 : public MediaFile {
 public:
  explicit MediaFileOnWin32(int descriptor) : fd(descriptor) {}
  ~MediaFileOnWin32() override { Close(); }
  MediaFileOnWin32(const MediaFileOnWin32&) = delete;
  MediaFileOnWin32& operator=(const MediaFileOnWin32&) = delete;

  IoResult ReadAt(std::uint64_t offset, MutableBytes buffer) override {
    IoResult result;
    if (result.error = SeekTo(offset); result.error != 0) return result;
    while (result.bytes < buffer.size()) {
      const MutableBytes rest = buffer.subspan(result.bytes);
      ForgetErrors();
      const int count = _read(fd, rest.data(), Amount(rest.size()));
      if (count <= 0) {
        if (count < 0) result.error = RuntimeError();
        break;
      }
      result.bytes += static_cast<std::size_t>(count);
    }
    Moved(offset, result);
    // The runtime remembers the end that it has met until the next seek, though the file may grow.
    if (result.bytes < buffer.size()) position = kUnknown;
    return result;
  }

  // The system has no gathering write for files that are read and written through its cache, so
  // that small parts are copied together.
  IoResult WriteAt(std::uint64_t offset, std::span<const ConstBytes> parts) override {
    if (parts.size() > kMaxWriteParts) return {0, ERROR_INVALID_PARAMETER};
    IoResult result;
    if (result.error = SeekTo(offset); result.error != 0) return result;
    WriteGathered(parts, result);
    Moved(offset, result);
    return result;
  }

  int Size(std::uint64_t& bytes) override {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(Handle(), &size) == 0) return LastError();
    bytes = static_cast<std::uint64_t>(size.QuadPart);
    return 0;
  }

  int CreationTime(std::int64_t& seconds) override {
    FILETIME created{};
    if (GetFileTime(Handle(), &created, nullptr, nullptr) == 0) return LastError();
    seconds = (Ticks(created) - kTicksFrom1601To1970) / kTicksPerSecond;
    return 0;
  }

  int SetSize(std::uint64_t bytes) override {
    position = kUnknown;
    LARGE_INTEGER end{};
    end.QuadPart = static_cast<LONGLONG>(bytes);
    if (SetFilePointerEx(Handle(), end, nullptr, FILE_BEGIN) == 0) return LastError();
    return SetEndOfFile(Handle()) != 0 ? 0 : LastError();
  }

  int Close() override {
    if (fd < 0) return 0;
    const int closing = fd;
    fd = -1;
    ForgetErrors();
    return _close(closing) == 0 ? 0 : RuntimeError();
  }

 private:
  static constexpr std::uint64_t kUnknown = UINT64_MAX;

  static unsigned Amount(std::size_t bytes) {
    return static_cast<unsigned>(std::min(bytes, kMaxTransfer));
  }

  // The runtime ends the process when it is asked about a closed descriptor; the system doesn't.
  [[nodiscard]] HANDLE Handle() const {
    return fd < 0 ? INVALID_HANDLE_VALUE : std::bit_cast<HANDLE>(_get_osfhandle(fd));
  }

  // Transfers mostly follow one another, so that the file stands where the next one begins.
  int SeekTo(std::uint64_t offset) {
    if (fd < 0) return ERROR_INVALID_HANDLE;
    if (offset > INT64_MAX) return ERROR_NEGATIVE_SEEK;
    if (offset == position) return 0;
    ForgetErrors();
    if (_lseeki64(fd, static_cast<std::int64_t>(offset), SEEK_SET) < 0) {
      position = kUnknown;
      return RuntimeError();
    }
    position = offset;
    return 0;
  }

  void Moved(std::uint64_t offset, const IoResult& result) {
    position = result.error == 0 ? offset + result.bytes : kUnknown;
  }

  void WriteGathered(std::span<const ConstBytes> parts, IoResult& result) {
    std::array<std::byte, kGathered> gathered;
    std::size_t used = 0;
    for (const ConstBytes part : parts) {
      if (part.size() > gathered.size() - used) {
        if (!WritePart(ConstBytes(gathered).first(used), result)) return;
        used = 0;
        if (part.size() > gathered.size()) {
          if (!WritePart(part, result)) return;
          continue;
        }
      }
      std::ranges::copy(part, gathered.begin() + static_cast<std::ptrdiff_t>(used));
      used += part.size();
    }
    (void)WritePart(ConstBytes(gathered).first(used), result);
  }

  // False when the part didn't get out whole.
  bool WritePart(ConstBytes part, IoResult& result) {
    while (!part.empty()) {
      const unsigned amount = Amount(part.size());
      ForgetErrors();
      const int count = _write(fd, part.data(), amount);
      if (count < 0) {
        // What is out already counts as a short write; the next one tells the reason.
        if (result.bytes == 0) result.error = RuntimeError();
        position = kUnknown;
        return false;
      }
      result.bytes += static_cast<std::size_t>(count);
      if (static_cast<unsigned>(count) < amount) return false;
      part = part.subspan(amount);
    }
    return true;
  }

  int fd;
  std::uint64_t position = 0;
};

class MediaFilesOnWin32 : public MediaFiles {
 public:
  int Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) override {
    file.reset();
    int flags = _O_BINARY | _O_NOINHERIT;
    flags |= mode == OpenMode::Read ? _O_RDONLY : _O_RDWR | _O_CREAT;
    if (mode == OpenMode::CreateOrTruncate) flags |= _O_TRUNC;
    int fd = -1;
    ForgetErrors();
    // The only rights that the system knows: everybody may read, and write.
    if (_wsopen_s(&fd, WidePath(path).c_str(), flags, _SH_DENYNO, _S_IREAD | _S_IWRITE) != 0) {
      return RuntimeError();
    }
    file = std::make_unique<MediaFileOnWin32>(fd);
    return 0;
  }

  FileStamp StampOf(const std::string& path) override {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(WidePath(path).c_str(), GetFileExInfoStandard, &data) == 0 ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      return {};
    }
    constexpr std::int64_t kNsPerTick = 100;
    return {std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow,
            (Ticks(data.ftLastWriteTime) - kTicksFrom1601To1970) * kNsPerTick, 0};
  }
};

}  // namespace

MediaFiles& Win32MediaFiles() {
  static MediaFilesOnWin32 files;
  return files;
}

}  // namespace qv::kelvo
