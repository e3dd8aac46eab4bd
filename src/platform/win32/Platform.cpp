#include <boost/filesystem/detail/utf8_codecvt_facet.hpp>
#include <boost/filesystem/path.hpp>
#include <locale>

#include "platform/win32/Win32.h"

namespace qv::kelvo {

const char kPathSeparator = '\\';
const std::string_view kPathSeparators = "\\/";

namespace {

// Narrow paths are UTF-8 in this module, whatever the process's code page is. Done while the module
// is loaded, since paths are made before anything of the platform is asked for.
const bool kPathsAreUtf8 = [] {
  boost::filesystem::path::imbue(
      std::locale(std::locale(), new boost::filesystem::detail::utf8_codecvt_facet));
  return true;
}();

class SystemClock : public Clock {
 public:
  UtcMs NowMs() override {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    return (Ticks(now) - kTicksFrom1601To1970) / (kTicksPerSecond / 1000);
  }

  std::int64_t SteadyNs() override {
    constexpr std::int64_t kNsPerSecond = 1'000'000'000;
    LARGE_INTEGER count{};
    QueryPerformanceCounter(&count);
    // In two steps: the product of count and nanoseconds would overflow.
    const std::int64_t seconds = count.QuadPart / frequency;
    const std::int64_t rest = count.QuadPart % frequency;
    return seconds * kNsPerSecond + rest * kNsPerSecond / frequency;
  }

 private:
  static std::int64_t Frequency() {
    LARGE_INTEGER perSecond{};
    QueryPerformanceFrequency(&perSecond);
    return perSecond.QuadPart;
  }

  const std::int64_t frequency = Frequency();
};

constexpr std::size_t kLongPath = 240;  // leaves room for a name in 260 characters

}  // namespace

std::wstring ToWide(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int count = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), count);
  return wide;
}

std::string ToUtf8(std::wstring_view text) {
  const int size = static_cast<int>(text.size());
  const int count =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(count), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), count, nullptr, nullptr);
  return narrow;
}

std::wstring WidePath(const std::string& path) {
  std::wstring wide = ToWide(path);
  if (wide.size() < kLongPath || wide.starts_with(L"\\\\?\\")) return wide;
  // The prefix that lifts the limit takes whole paths with backslashes only.
  const DWORD size = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  std::wstring whole(size, L'\0');
  whole.resize(GetFullPathNameW(wide.c_str(), size, whole.data(), nullptr));
  if (whole.empty() || whole.size() >= size) return wide;
  return whole.starts_with(L"\\\\") ? L"\\\\?\\UNC" + whole.substr(1) : L"\\\\?\\" + whole;
}

OwnedHandle OpenAttributes(const std::string& path) {
  const HANDLE handle = CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  return OwnedHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

Platform& SystemPlatform() {
  static SystemClock clock;
  static Platform platform{
      clock,          Win32Drives(), Win32Directories(), Win32MediaFiles(), Win32DurableFiles(),
      Win32DiskSync()};
  return platform;
}

}  // namespace qv::kelvo
