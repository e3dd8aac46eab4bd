#include <time.h>

#include "platform/posix/Posix.h"

namespace qv::kelvo {

const char kPathSeparator = '/';
const std::string_view kPathSeparators = "/";

namespace {

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

}  // namespace qv::kelvo
