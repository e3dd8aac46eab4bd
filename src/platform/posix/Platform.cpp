#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <algorithm>

#include "platform/Clock.h"
#include "platform/Threads.h"
#include "platform/posix/Posix.h"

namespace qv::kelvo {

const char kPathSeparator = '/';
const std::string_view kPathSeparators = "/";

namespace {

// A yielding thread weighs a thirtieth of an ordinary one, and its disk requests come last.
constexpr int kNiceness = 15;

class SystemClock : public Clock {
 public:
  UtcMs NowMs() override {
    const timespec now = Read(CLOCK_REALTIME);
    return UtcMs{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
  }

  std::int64_t SteadyNs() override {
    const timespec now = Read(CLOCK_MONOTONIC);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  }

  void Pause(int milliseconds) override {
    const timespec duration{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    nanosleep(&duration, nullptr);
  }

 private:
  static timespec Read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now;
  }
};

}  // namespace

Platform& SystemPlatform() {
  static SystemClock clock;
  static Platform platform{
      clock,          PosixDrives(), PosixDirectories(), PosixMediaFiles(), PosixDurableFiles(),
      PosixDiskSync()};
  return platform;
}

static_assert(sizeof(time_t) == 8);

// The C library's call knows a zone's rules of all years; wxWidgets forgets summer time after 2038.
CalendarTime ToLocal(UtcMs time) {
  time = std::clamp(time, kFirstLocalMs, kLastLocalMs);
  const UtcMs millisecond = (time % 1000 + 1000) % 1000;
  const time_t seconds = (time - millisecond) / 1000;
  struct tm local {};
  localtime_r(&seconds, &local);
  return {local.tm_year + 1900,
          local.tm_mon + 1,
          local.tm_mday,
          local.tm_hour,
          local.tm_min,
          local.tm_sec,
          static_cast<int>(millisecond),
          local.tm_wday};
}

void PrepareThread() {}

std::uint64_t YieldToOtherThreads() {
  // Here the value belongs to the thread, not to its process.
  const auto thread = static_cast<id_t>(syscall(SYS_gettid));
  if (getpriority(PRIO_PROCESS, thread) < kNiceness) {
    (void)setpriority(PRIO_PROCESS, thread, kNiceness);
  }
  return thread;
}

void RaiseThread(std::uint64_t thread) {
  const int ordinary = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
  (void)setpriority(PRIO_PROCESS, static_cast<id_t>(thread), ordinary);
}

}  // namespace qv::kelvo
