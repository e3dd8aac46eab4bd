#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {

inline constexpr int LogTrace = KELVO_LOG_TRACE;
inline constexpr int LogInfo = KELVO_LOG_INFO;
inline constexpr int LogWarning = KELVO_LOG_WARNING;
inline constexpr int LogError = KELVO_LOG_ERROR;
inline constexpr int LogCritical = KELVO_LOG_CRITICAL;

#if defined(__MINGW_PRINTF_FORMAT)
#define KELVO_PRINTF(text, first) __attribute__((format(__MINGW_PRINTF_FORMAT, text, first)))
#elif defined(__GNUC__)
#define KELVO_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define KELVO_PRINTF(text, first)
#endif

// Log lines go to the host, which shows them from its threshold on. It may change that at any time,
// so it is asked before each line: one host call for a line that isn't shown, two for one that is.
// What is told of a state is told once, when it begins and when it ends, never for each retry; a
// line of level 50 and above stands in docs/operation.md with what to do about it.

// The host's message function: one of the process-wide objects (docs/host-interface.md). Null
// before Load. Any thread.
void SetHostFunction(KelvoHostFunction function);
[[nodiscard]] KelvoHostFunction HostFunction();

// Sends one line to the host if its threshold lets it pass. Above level 0 a text is cut to 511
// characters. Costs one host call when the level is off. Any thread; does nothing before Load.
void LogPrintf(int level, const char* format, ...) KELVO_PRINTF(2, 3);

// Whether a line of this level would be shown; ask before assembling an expensive argument.
[[nodiscard]] bool LogLevelEnabled(int level);

// The host's threshold as it answers it; KELVO_LOG_NO_THRESHOLD shows every line.
[[nodiscard]] std::uint32_t QueryLogLevel();

// Decimal text with the digit grouping of "en-US", 1,234,567, whatever the process's locale.
// Allocates nothing.
class CountText {
 public:
  explicit CountText(std::uint64_t value);
  [[nodiscard]] const char* c_str() const { return text + start; }

 private:
  char text[27];
  int start;
};
inline CountText FormatCount(std::uint64_t value) {
  return CountText(value);
}

// As printf's %f with so many digits, but with a point whatever the locale: no line may have a
// number printed by %f, %e or %g.
[[nodiscard]] std::string FormatFixed(double value, int digits);

// Runs a step of a thread or an export that no exception may leave: what it throws ends here, with
// a line in the log. False then.
template <typename Step>
bool Guarded(const char* what, Step step) noexcept {
  try {
    step();
    return true;
  } catch (const std::exception& error) {
    LogPrintf(LogError, "%s failed: %s", what, error.what());
  } catch (...) {
    LogPrintf(LogError, "%s failed: unknown exception", what);
  }
  return false;
}

}  // namespace qvsvr::kelvo
