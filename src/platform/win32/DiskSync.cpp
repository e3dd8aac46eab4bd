#include "platform/win32/Win32.h"

namespace qv::kelvo {

namespace {

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

  bool IsMissing(int error) const override {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
  }
};

}  // namespace

DiskSync& Win32DiskSync() {
  static DiskSyncOnWin32 sync;
  return sync;
}

}  // namespace qv::kelvo
