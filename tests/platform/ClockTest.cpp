#include <gtest/gtest.h>

#include <ctime>

#include "platform/Platform.h"

namespace qv::kelvo {
namespace {

TEST(SystemClock, TellsWallTimeInMillisecondsAndNeverRunsBack) {
  Clock& clock = SystemPlatform().clock;
  const std::int64_t before = std::time(nullptr);
  const UtcMs now = clock.NowMs();
  EXPECT_GE(now / 1000, before - 1);  // time() may lag by a tick of the kernel
  EXPECT_LE(now / 1000, std::time(nullptr) + 1);

  const std::int64_t start = clock.SteadyNs();
  std::int64_t last = start;
  while (last - start < 2'000'000) {  // spins until two milliseconds have passed by this clock
    const std::int64_t next = clock.SteadyNs();
    ASSERT_GE(next, last);
    last = next;
  }
  EXPECT_GE(clock.NowMs() - now, 1);
}

}  // namespace
}  // namespace qv::kelvo
