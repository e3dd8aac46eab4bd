#include <algorithm>
#include <limits>

#include "platform/win32/Win32.h"

namespace qv::kelvo {

namespace {

class DurableFilesOnWin32 : public DurableFiles {
 public:
  WriteResult WriteNew(const std::string& path, std::string_view content) override {
    WriteResult result;
    const HANDLE file = CreateFileW(WidePath(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, FILE_FLAG_WRITE_THROUGH, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
      result.step = WriteStep::Create;
      result.error = LastError();
      return result;
    }
    const std::size_t most = std::numeric_limits<DWORD>::max();
    DWORD written = 0;
    if (WriteFile(file, content.data(), static_cast<DWORD>(std::min(content.size(), most)),
                  &written, nullptr) == 0) {
      result.step = WriteStep::Write;
      result.error = LastError();
    }
    result.written = written;
    if (CloseHandle(file) == 0 && result.step == WriteStep::Done) {
      result.step = WriteStep::Close;
      result.error = LastError();
    }
    return result;
  }

  int Rename(const std::string& from, const std::string& to) override {
    const bool done =
        MoveFileExW(WidePath(from).c_str(), WidePath(to).c_str(), MOVEFILE_WRITE_THROUGH) != 0;
    return done ? 0 : LastError();
  }

  int Remove(const std::string& path) override {
    return DeleteFileW(WidePath(path).c_str()) != 0 ? 0 : LastError();
  }

  bool IsMissing(int error) const override {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
  }
};

}  // namespace

DurableFiles& Win32DurableFiles() {
  static DurableFilesOnWin32 files;
  return files;
}

}  // namespace qv::kelvo
