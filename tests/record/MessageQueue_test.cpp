#include "record/MessageQueue.h"

#include <gtest/gtest.h>

namespace qvsvr::kelvo {
namespace {

// A queue whose messages are numbered.
class NumberedQueue : public ::testing::Test {
 protected:
  // Pushes or pops until so many are left; returns the queue's capacity.
  std::size_t Bring(std::size_t size) {
    for (; queue.Size() < size; ++next) {
      RecordMessage message;
      message.Source = next;
      message.Header.Extension[127] = static_cast<std::uint8_t>(next);
      queue.Push(message);
    }
    for (; queue.Size() > size; ++first) {
      const RecordMessage message = queue.Pop();
      EXPECT_EQ(message.Source, first);
      EXPECT_EQ(message.Header.Extension[127], static_cast<std::uint8_t>(first));
    }
    return queue.Capacity();
  }
  std::size_t Shrink() {
    { const auto freed = queue.Shrink(); }
    return queue.Capacity();
  }

  MessageQueue queue;
  std::uint32_t next = 0, first = 0;
};

TEST_F(NumberedQueue, SteadyTrafficKeepsItsOrderAndNeedsNoMoreMemory) {
  for (const std::size_t depth : {1u, 31u, 32u, 33u, 500u}) {
    Bring(depth + 40);
    std::size_t most = Bring(depth);
    for (int i = 0; i < 1000; ++i) {
      most = std::max(most, Bring(depth + 1));
      Bring(depth);
      if (i % 100 == 99) (void)Shrink();
    }
    EXPECT_LE(most, depth + 40 + 64) << depth;
  }
}

TEST_F(NumberedQueue, GivesMemoryBackOnceABurstIsHalfGone) {
  const std::size_t least = Shrink();
  EXPECT_GE(least, 8u);
  const std::size_t burst = Bring(3200);
  EXPECT_EQ(Shrink(), burst);
  const std::size_t held = Bring(1700);
  EXPECT_EQ(Shrink(), held) << "more than half is still in use";
  Bring(1000);
  EXPECT_LT(Shrink(), 1100u);
  Bring(0);
  EXPECT_EQ(Shrink(), least);
  Bring(100);
  Bring(0);
}

}  // namespace
}  // namespace qvsvr::kelvo
