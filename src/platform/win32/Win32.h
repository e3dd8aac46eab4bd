#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef NOGDI
#define NOGDI
#endif
#include <windows.h>

#ifndef BOOST_SYSTEM_USE_UTF8
#error "Boost's error texts would come in the code page of the machine"
#endif

#include <memory>
#include <string>
#include <string_view>

#include "platform/Platform.h"

namespace qv::kelvo {

// The parts of SystemPlatform() on this system; each lives as long as the process. Error numbers
// are those of GetLastError.
[[nodiscard]] Drives& Win32Drives();
[[nodiscard]] Directories& Win32Directories();
[[nodiscard]] MediaFiles& Win32MediaFiles();
[[nodiscard]] DurableFiles& Win32DurableFiles();
[[nodiscard]] DiskSync& Win32DiskSync();

// Between UTF-8 inside and UTF-16 outside. What isn't well-formed becomes U+FFFD.
[[nodiscard]] std::wstring ToWide(std::string_view text);
[[nodiscard]] std::string ToUtf8(std::wstring_view text);

// A path as the file calls take it, also when it is longer than 260 characters.
[[nodiscard]] std::wstring WidePath(const std::string& path);

[[nodiscard]] inline int LastError() {
  return static_cast<int>(GetLastError());
}

// 100-nanosecond steps since 1601-01-01 UTC.
[[nodiscard]] inline std::int64_t Ticks(const FILETIME& time) {
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}
constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kTicksFrom1601To1970 = 11'644'473'600 * kTicksPerSecond;

struct CloseHandleOf {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<HANDLE, CloseHandleOf>;

// Lets the disk serve others before this file, if it is a yielding thread's (platform/Threads.h).
void LowerIfYielding(HANDLE file);

// Opens a file or directory to look at its attributes only; null with GetLastError set on failure.
[[nodiscard]] OwnedHandle OpenAttributes(const std::string& path);

}  // namespace qv::kelvo
