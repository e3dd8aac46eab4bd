// What the stand-in for the AWS SDK promises by itself.
#if __has_include(<aws/s3/Models.h>)

#include <aws/core/utils/threading/Executor.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <system_error>

#include "compat/aws/source/Retries.h"

namespace {

using Aws::Compat::RetryDelay;
using Aws::Utils::Threading::PooledThreadExecutor;

TEST(Retries, WaitLongerEachTimeAndNeverBeyondTwentySeconds) {
  const std::pair<int, int> delays[] = {{1, 0},       {2, 50},          {3, 100},
                                        {10, 12'800}, {11, 20'000},     {30, 20'000},
                                        {70, 20'000}, {INT_MAX, 20'000}};
  for (const auto& [failures, milliseconds] : delays) {
    EXPECT_EQ(RetryDelay(failures).count(), milliseconds) << failures;
  }
}

TEST(ThreadPool, LeavesNoThreadBehindWhenALaterOneCannotBeMade) {
  std::atomic<int> running = 0;
  int made = 0;
  const auto make = [&](const std::function<void()>& run) {
    if (++made == 3) throw std::system_error(EAGAIN, std::generic_category());
    ++running;
    return std::thread([&running, run] {
      run();
      --running;
    });
  };
  EXPECT_THROW(PooledThreadExecutor(4, make), std::system_error);
  EXPECT_EQ(made, 3);
  EXPECT_EQ(running, 0);
}

}  // namespace

#endif
