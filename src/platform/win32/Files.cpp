#include "platform/Files.h"

#include "platform/Native.h"
#include "platform/win32/Win32.h"

namespace qv::kelvo {

boost::filesystem::path NativePath(const std::string& path) {
  return WidePath(path);
}

bool ClearReadOnly(const std::string& path) {
  const std::wstring wide = WidePath(path);
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
         SetFileAttributesW(wide.c_str(), attributes & ~DWORD{FILE_ATTRIBUTE_READONLY}) != 0;
}

int FindKind(const std::string& path, FileKind& kind) {
  kind = FileKind::Missing;
  const std::wstring wide = WidePath(path);
  DWORD attributes = GetFileAttributesW(wide.c_str());
  // Whether a link leads anywhere shows only when it is followed.
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    const OwnedHandle handle = OpenAttributes(path);
    BY_HANDLE_FILE_INFORMATION information{};
    attributes = handle && GetFileInformationByHandle(handle.get(), &information) != 0
                     ? information.dwFileAttributes
                     : INVALID_FILE_ATTRIBUTES;
  }
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const int error = LastError();
    return IsMissing(error) ? 0 : error;
  }
  const bool isDirectory = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  kind = isDirectory ? FileKind::Directory : FileKind::File;
  return 0;
}

int FileSize(const std::string& path, std::uint64_t& bytes) {
  bytes = 0;
  const OwnedHandle handle = OpenAttributes(path);
  BY_HANDLE_FILE_INFORMATION information{};
  if (!handle || GetFileInformationByHandle(handle.get(), &information) == 0) return LastError();
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ERROR_ACCESS_DENIED;
  bytes = std::uint64_t{information.nFileSizeHigh} << 32 | information.nFileSizeLow;
  return 0;
}

int MakeDirectory(const std::string& path) {
  if (CreateDirectoryW(WidePath(path).c_str(), nullptr) != 0) return 0;
  const int error = LastError();
  return error == ERROR_ALREADY_EXISTS && IsDirectory(path) ? 0 : error;
}

int RemoveEmptyDirectory(const std::string& path) {
  const std::wstring wide = WidePath(path);
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return LastError();
  // Junctions, links and mount folders go at once, full or not.
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return ERROR_DIR_NOT_EMPTY;
  return RemoveDirectoryW(wide.c_str()) != 0 ? 0 : LastError();
}

bool IsBusy(int error) {
  return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION ||
         error == ERROR_LOCK_VIOLATION || error == ERROR_DELETE_PENDING;
}

}  // namespace qv::kelvo
