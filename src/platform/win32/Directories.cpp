#include "platform/Native.h"
#include "platform/win32/Win32.h"

namespace qv::kelvo {

namespace {

// As long as a change may stand before a further one surely gets another time.
constexpr std::int64_t kSettledTicks = 3 * kTicksPerSecond;

struct CloseFind {
  using pointer = HANDLE;
  void operator()(HANDLE find) const { FindClose(find); }
};

bool IsSelfOrParent(std::wstring_view name) {
  return name == L"." || name == L"..";
}

// The size of what a symbolic link to a file leads to; 0 when it leads nowhere.
std::uint64_t TargetSize(const std::string& path) {
  const OwnedHandle handle = OpenAttributes(path);
  LARGE_INTEGER size{};
  if (!handle || GetFileSizeEx(handle.get(), &size) == 0) return 0;
  return static_cast<std::uint64_t>(size.QuadPart);
}

bool IsLink(const WIN32_FIND_DATAW& found) {
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         found.dwReserved0 == IO_REPARSE_TAG_SYMLINK;
}

class DirectoriesOnWin32 : public Directories {
 public:
  int List(const std::string& path, std::string_view pattern, ListSizes sizes,
           const std::function<bool(const DirectoryEntry&)>& visit) override {
    std::string prefix = path;
    if (!prefix.empty() && prefix.back() != '\\' && prefix.back() != '/') prefix += kPathSeparator;
    WIN32_FIND_DATAW found{};
    const HANDLE first =
        FindFirstFileExW(WidePath(prefix + std::string(pattern)).c_str(), FindExInfoBasic, &found,
                         FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (first == INVALID_HANDLE_VALUE) {
      const int error = LastError();
      return error == ERROR_FILE_NOT_FOUND || error == ERROR_NO_MORE_FILES ? 0 : error;
    }
    const std::unique_ptr<HANDLE, CloseFind> find(first);
    do {
      // The system's patterns are wider: they see short names and let `?` match nothing.
      const std::string name = ToUtf8(found.cFileName);
      if (IsSelfOrParent(found.cFileName) || !MatchesPattern(name, pattern)) continue;
      DirectoryEntry entry;
      entry.name = name;
      entry.isDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      if (sizes == ListSizes::Yes && !entry.isDirectory) {
        entry.size = IsLink(found) ? TargetSize(prefix + name)
                                   : std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
      }
      if (!visit(entry)) return 0;
    } while (FindNextFileW(find.get(), &found) != 0);
    const int error = LastError();
    return error == ERROR_NO_MORE_FILES ? 0 : error;
  }

  std::uint64_t ChangeStamp(const std::string& path) override {
    const OwnedHandle handle = OpenAttributes(path);
    BY_HANDLE_FILE_INFORMATION information{};
    if (!handle || !StampsDirectories(handle.get()) ||
        GetFileInformationByHandle(handle.get(), &information) == 0) {
      return 0;
    }
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    const std::int64_t changed = Ticks(information.ftLastWriteTime);
    const bool isDirectory = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool settled = Ticks(now) - changed > kSettledTicks;
    return isDirectory && settled ? static_cast<std::uint64_t>(changed) : 0;
  }

 private:
  // Whether the file system notes in a directory when its entries change. The FAT family doesn't.
  static bool StampsDirectories(HANDLE directory) {
    wchar_t name[MAX_PATH + 1] = {};
    if (GetVolumeInformationByHandleW(directory, nullptr, 0, nullptr, nullptr, nullptr, name,
                                      MAX_PATH + 1) == 0) {
      return false;
    }
    return std::wstring_view(name) == L"NTFS" || std::wstring_view(name) == L"ReFS";
  }
};

}  // namespace

Directories& Win32Directories() {
  static DirectoriesOnWin32 directories;
  return directories;
}

}  // namespace qv::kelvo
