#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "platform/win32/Win32.h"

namespace qv::kelvo {

namespace {

constexpr std::size_t kMaxTransfer = 1u << 30;  // of one call, whose count has 32 bits
constexpr std::size_t kGathered = 64 * 1024;    // parts up to this size are copied together

// Read and written at given places only: where the system believes the file to stand never matters.
class MediaFileOnWin32 : public MediaFile {
 public:
  explicit MediaFileOnWin32(OwnedHandle opened) : handle(std::move(opened)) {}

  IoResult ReadAt(std::uint64_t offset, MutableBytes buffer) override {
    IoResult result;
    while (result.bytes < buffer.size()) {
      const MutableBytes rest = buffer.subspan(result.bytes);
      OVERLAPPED place{};
      DWORD count = 0;
      result.error = PlaceAt(offset + result.bytes, place);
      if (result.error != 0) break;
      if (ReadFile(Handle(), rest.data(), Amount(rest.size()), &count, &place) == 0) {
        result.error = LastError();
        if (result.error == ERROR_HANDLE_EOF) result.error = 0;
        break;
      }
      if (count == 0) break;
      result.bytes += count;
    }
    return result;
  }

  // The system has no gathering write for files that are read and written through its cache. Each
  // call passes by every scanner, which costs more than copying what is small.
  IoResult WriteAt(std::uint64_t offset, std::span<const ConstBytes> parts) override {
    if (parts.size() > kMaxWriteParts) return {0, ERROR_INVALID_PARAMETER};
    std::array<std::byte, kGathered> gathered;
    std::size_t held = 0;
    IoResult result;
    const auto flush = [&] {
      return WritePart(offset, ConstBytes(gathered).first(std::exchange(held, 0)), result);
    };
    for (const ConstBytes part : parts) {
      if (part.empty()) continue;
      if (part.size() > gathered.size() - held && !flush()) return result;
      if (part.size() > gathered.size()) {
        if (!WritePart(offset, part, result)) return result;
        continue;
      }
      std::memcpy(gathered.data() + held, part.data(), part.size());
      held += part.size();
    }
    (void)flush();
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
    LARGE_INTEGER end{};
    end.QuadPart = static_cast<LONGLONG>(bytes);
    if (SetFilePointerEx(Handle(), end, nullptr, FILE_BEGIN) == 0) return LastError();
    return SetEndOfFile(Handle()) != 0 ? 0 : LastError();
  }

  int Close() override {
    const HANDLE closing = handle.release();
    return closing == nullptr || CloseHandle(closing) != 0 ? 0 : LastError();
  }

 private:
  static DWORD Amount(std::size_t bytes) {
    return static_cast<DWORD>(std::min(bytes, kMaxTransfer));
  }

  // Without one that is open: such as every call refuses.
  [[nodiscard]] HANDLE Handle() const { return handle ? handle.get() : INVALID_HANDLE_VALUE; }

  static int PlaceAt(std::uint64_t offset, OVERLAPPED& place) {
    if (offset > INT64_MAX) return ERROR_NEGATIVE_SEEK;
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return 0;
  }

  // Writes behind what `result` counts already. False when the part didn't get out whole.
  bool WritePart(std::uint64_t offset, ConstBytes part, IoResult& result) {
    while (!part.empty()) {
      OVERLAPPED place{};
      DWORD count = 0;
      int error = PlaceAt(offset + result.bytes, place);
      if (error == 0 &&
          WriteFile(Handle(), part.data(), Amount(part.size()), &count, &place) == 0) {
        error = LastError();
      }
      // What is out already counts as a short write; the next one tells the reason.
      if (error != 0 && result.bytes == 0) result.error = error;
      result.bytes += count;
      if (error != 0 || count < Amount(part.size())) return false;
      part = part.subspan(count);
    }
    return true;
  }

  OwnedHandle handle;
};

class MediaFilesOnWin32 : public MediaFiles {
 public:
  int Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) override {
    file.reset();
    const bool reads = mode == OpenMode::Read;
    const DWORD found = reads                            ? OPEN_EXISTING
                        : mode == OpenMode::CreateOrKeep ? OPEN_ALWAYS
                                                         : CREATE_ALWAYS;
    const HANDLE handle = CreateFileW(
        WidePath(path).c_str(), reads ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE,
        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, found, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return LastError();
    LowerIfYielding(handle);
    file = std::make_unique<MediaFileOnWin32>(OwnedHandle(handle));
    return 0;
  }

  FileStamp StampOf(const std::string& path) override {
    const OwnedHandle handle = OpenAttributes(path);
    BY_HANDLE_FILE_INFORMATION file{};
    FILE_BASIC_INFO times{};
    if (!handle || GetFileInformationByHandle(handle.get(), &file) == 0 ||
        (file.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ||
        GetFileInformationByHandleEx(handle.get(), FileBasicInfo, &times, sizeof times) == 0) {
      return {};
    }
    // Not every file system tells of changes of more than the content.
    const std::int64_t changed =
        times.ChangeTime.QuadPart != 0 ? times.ChangeTime.QuadPart : times.LastWriteTime.QuadPart;
    constexpr std::int64_t kNsPerTick = 100;
    return {std::uint64_t{file.nFileSizeHigh} << 32 | file.nFileSizeLow,
            (changed - kTicksFrom1601To1970) * kNsPerTick,
            std::uint64_t{file.nFileIndexHigh} << 32 | file.nFileIndexLow};
  }
};

}  // namespace

MediaFiles& Win32MediaFiles() {
  static MediaFilesOnWin32 files;
  return files;
}

}  // namespace qv::kelvo
