#include <array>

#include "platform/Native.h"
#include "platform/win32/Win32.h"

namespace qv::kelvo {

namespace {

constexpr DWORD kDriveStringsSize = 4096;

// The drives are the system's letters of fixed type: no removable, network or optical ones.
class DrivesOnWin32 : public Drives {
 public:
  int FixedDrives(std::vector<std::string>& names) override {
    names.clear();
    // Names one behind the other, each ended by a zero, the list by an empty one.
    std::array<wchar_t, kDriveStringsSize + 2> strings{};
    const DWORD length = GetLogicalDriveStringsW(kDriveStringsSize, strings.data());
    int error = length == 0 ? LastError() : 0;
    if (length > kDriveStringsSize) error = ERROR_INSUFFICIENT_BUFFER;
    for (const wchar_t* name = strings.data(); *name != L'\0';) {
      const std::wstring_view text(name);
      if (GetDriveTypeW(name) == DRIVE_FIXED) names.push_back(ToUtf8(text));
      name += text.size() + 1;
    }
    return error;
  }

  std::string SearchedPlace() override { return {}; }

  int SystemDirectory(std::string& path) override {
    path.clear();
    std::array<wchar_t, MAX_PATH> directory{};
    const UINT length = GetWindowsDirectoryW(directory.data(), MAX_PATH);
    if (length == 0) return LastError();
    if (length > MAX_PATH) return ERROR_INSUFFICIENT_BUFFER;
    path = ToUtf8({directory.data(), length});
    return 0;
  }

  // The volume's serial number: two letters on one volume share it.
  int DeviceNumber(const std::string& path, std::uint64_t& device) override {
    const OwnedHandle handle = OpenAttributes(path);
    BY_HANDLE_FILE_INFORMATION information{};
    if (!handle || GetFileInformationByHandle(handle.get(), &information) == 0) return LastError();
    device = information.dwVolumeSerialNumber;
    return 0;
  }

  std::string Space(const std::string& path, DriveSpace& space) override {
    return MeasureSpace(path, space);
  }
};

}  // namespace

Drives& Win32Drives() {
  static DrivesOnWin32 drives;
  return drives;
}

}  // namespace qv::kelvo
