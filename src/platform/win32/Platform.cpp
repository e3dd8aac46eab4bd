#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <cstring>
#include <locale>
#include <map>
#include <mutex>

#include "platform/Clock.h"
#include "platform/Threads.h"
#include "platform/win32/Win32.h"

namespace qv::kelvo {

const char kPathSeparator = '\\';
const std::string_view kPathSeparators = "\\/";

namespace {

// Boost's own between narrow and wide paths, as the archive targets' interface takes them, by the
// conversions that all other paths take: UTF-8 whatever the process's code page is, all characters,
// and nothing that throws. The library gives room for the longest outcome.
class PathConversion : public std::codecvt<wchar_t, char, std::mbstate_t> {
 private:
  result do_in(std::mbstate_t&, const char* from, const char* end, const char*& next, wchar_t* to,
               wchar_t* last, wchar_t*& out) const override {
    next = end;
    return Put(ToWide({from, end}), to, last, out);
  }
  result do_out(std::mbstate_t&, const wchar_t* from, const wchar_t* end, const wchar_t*& next,
                char* to, char* last, char*& out) const override {
    next = end;
    return Put(ToUtf8({from, end}), to, last, out);
  }
  bool do_always_noconv() const noexcept override { return false; }
  int do_encoding() const noexcept override { return 0; }

  template <typename Text, typename Letter>
  static result Put(const Text& text, Letter* to, const Letter* last, Letter*& out) {
    out = to;
    if (text.size() > static_cast<std::size_t>(last - to)) return error;
    out = std::copy(text.begin(), text.end(), to);
    return ok;
  }
};

// Done while the module is loaded, since paths are made before anything of the platform is asked
// for.
const bool kPathsAreConverted = [] {
  boost::filesystem::path::imbue(std::locale(std::locale::classic(), new PathConversion));
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

  void Pause(int milliseconds) override { Sleep(static_cast<DWORD>(milliseconds)); }

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

namespace {

// The rules of the system's zone by year: the C library and the calls without a year apply this
// year's to every year. Any thread.
class ZoneRules {
 public:
  TIME_ZONE_INFORMATION Of(WORD year) {
    DYNAMIC_TIME_ZONE_INFORMATION current;
    std::memset(&current, 0, sizeof current);
    (void)GetDynamicTimeZoneInformation(&current);
    const std::lock_guard guard(lock);
    if (std::memcmp(&current, &zone, sizeof zone) != 0) {
      zone = current;
      years.clear();
    }
    const auto [entry, isNew] = years.try_emplace(year);
    if (isNew && GetTimeZoneInformationForYear(year, &zone, &entry->second) == 0) {
      (void)GetTimeZoneInformation(&entry->second);
    }
    return entry->second;
  }

 private:
  std::mutex lock;
  DYNAMIC_TIME_ZONE_INFORMATION zone{};
  std::map<WORD, TIME_ZONE_INFORMATION> years;
};

SYSTEMTIME ToZone(const SYSTEMTIME& utc, WORD year) {
  static ZoneRules rules;
  const TIME_ZONE_INFORMATION rule = rules.Of(year);
  SYSTEMTIME local{};
  return SystemTimeToTzSpecificLocalTime(&rule, &utc, &local) != 0 ? local : utc;
}

}  // namespace

CalendarTime ToLocal(UtcMs time) {
  time = std::clamp(time, kFirstLocalMs, kLastLocalMs);
  const auto ticks =
      static_cast<std::uint64_t>(time * (kTicksPerSecond / 1000) + kTicksFrom1601To1970);
  const FILETIME moment{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME utc{};
  FileTimeToSystemTime(&moment, &utc);
  SYSTEMTIME local = ToZone(utc, utc.wYear);
  if (local.wYear != utc.wYear) local = ToZone(utc, local.wYear);
  return {local.wYear,   local.wMonth,  local.wDay,          local.wHour,
          local.wMinute, local.wSecond, local.wMilliseconds, local.wDayOfWeek};
}

void PrepareThread() {
  (void)SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, nullptr);
}

std::uint64_t YieldToOtherThreads() {
  PrepareThread();
  // A lower one gets nothing on a busy machine, and holds up whoever waits for it.
  (void)SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL);
  return GetCurrentThreadId();
}

void RaiseThread(std::uint64_t thread) {
  const OwnedHandle handle(OpenThread(THREAD_SET_INFORMATION, FALSE, static_cast<DWORD>(thread)));
  if (handle) (void)SetThreadPriority(handle.get(), THREAD_PRIORITY_NORMAL);
}

void LowerIfYielding(HANDLE file) {
  if (GetThreadPriority(GetCurrentThread()) != THREAD_PRIORITY_BELOW_NORMAL) return;
  FILE_IO_PRIORITY_HINT_INFO hint{};
  hint.PriorityHint = IoPriorityHintLow;
  (void)SetFileInformationByHandle(file, FileIoPriorityHintInfo, &hint, sizeof hint);
}

}  // namespace qv::kelvo
