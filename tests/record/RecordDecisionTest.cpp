#include "record/RecordDecision.h"

#include <gtest/gtest.h>

#include <limits>

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

// What to keep is compared with a model in FlushModelTest.cpp.
TEST(RecordDecision, TimeArithmeticHoldsAtTheLimits) {
  EXPECT_TRUE(Within(1000, 1100, 100) && Within(1100, 1000, 100) && Within(5, 5, 0));
  EXPECT_FALSE(Within(1000, 1101, 100) || Within(5, 5, -1));
  EXPECT_FALSE(Within(kMin, kMax, kMax));
  EXPECT_EQ(SubtractMs(100, -30), 130);
  EXPECT_EQ(SubtractMs(kMin + 5, 6), kMin);
  EXPECT_EQ(SubtractMs(kMax - 5, -6), kMax);
  ChannelSlot slot;
  PendingFrame frame;
  frame.Time = kMax;
  slot.PreAlarm = std::numeric_limits<std::int32_t>::max();
  EXPECT_TRUE(InWaitingTime(slot, frame, kMax - 2'147'483'647'000));
  EXPECT_FALSE(InWaitingTime(slot, frame, kMax - 2'147'483'647'001));
}

}  // namespace
}  // namespace qvsvr::kelvo
