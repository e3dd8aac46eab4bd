#include <algorithm>
#include <limits>

#include "platform/Native.h"
#include "platform/win32/Win32.h"

namespace qv::kelvo {
namespace {

// Renames are durable by the flag for writing through: there is no directory to be synced.
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
    // Writing through ends at the cache of many a disk.
    if (result.step == WriteStep::Done && FlushFileBuffers(file) == 0) {
      result.step = WriteStep::Write;
      result.error = LastError();
    }
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

  int Replace(const std::string& from, const std::string& to) override {
    return Clearing(to, [wideFrom = WidePath(from), wideTo = WidePath(to)] {
      return MoveFileExW(wideFrom.c_str(), wideTo.c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    });
  }

  int Remove(const std::string& path) override {
    return Clearing(path, [wide = WidePath(path)] { return DeleteFileW(wide.c_str()); });
  }

 private:
  // Makes a call, which fails on a file that is marked read-only, whatever the mark.
  template <typename Call>
  static int Clearing(const std::string& path, Call call) {
    if (call() != 0) return 0;
    const int error = LastError();
    if (error != ERROR_ACCESS_DENIED || !ClearReadOnly(path)) return error;
    return call() != 0 ? 0 : LastError();
  }
};

class DiskSyncOnWin32 : public DiskSync {
 public:
  // A flush can't be started without waiting for it.
  int Start(const std::string&) override { return 0; }

  int Finish(const std::string& path) override {
    // Shared with everybody, who may even remove the file meanwhile.
    const HANDLE opened = CreateFileW(WidePath(path).c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) return LastError();
    const OwnedHandle file(opened);
    return FlushFileBuffers(file.get()) != 0 ? 0 : LastError();
  }

  // The journal of NTFS takes names along with the flush of a file that was created later.
  int FinishDirectory(const std::string&) override { return 0; }
};

}  // namespace

DurableFiles& Win32DurableFiles() {
  static DurableFilesOnWin32 files;
  return files;
}

DiskSync& Win32DiskSync() {
  static DiskSyncOnWin32 sync;
  return sync;
}

}  // namespace qv::kelvo
