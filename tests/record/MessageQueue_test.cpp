#include "record/MessageQueue.h"

#include <gtest/gtest.h>

namespace qvsvr::kelvo {
namespace {

// A queue whose messages are numbered.
struct Numbered {
  void Push() {
    RecordMessage message;
    message.Source = next++;
    message.Header.Extension[127] = static_cast<std::uint8_t>(message.Source);
    queue.Push(message);
  }
  void Pop() {
    const RecordMessage message = queue.Pop();
    ASSERT_EQ(message.Source, first++);
    ASSERT_EQ(message.Header.Extension[127], static_cast<std::uint8_t>(message.Source));
  }
  // Pushes or pops until so many are left; returns the queue's capacity.
  std::size_t Bring(std::size_t size) {
    while (queue.Size() < size) Push();
    while (queue.Size() > size && !testing::Test::HasFatalFailure()) Pop();
    return queue.Capacity();
  }
  std::size_t Shrink() {
    { const auto freed = queue.Shrink(); }
    return queue.Capacity();
  }
  MessageQueue queue;
  std::uint32_t next = 0, first = 0;
};

TEST(MessageQueue, SteadyTrafficKeepsItsOrderAndNeedsNoMoreMemory) {
  for (const std::size_t depth : {1u, 31u, 32u, 33u, 500u}) {
    Numbered messages;
    messages.Bring(depth + 40);
    std::size_t most = messages.Bring(depth);
    for (int i = 0; i < 1000; ++i) {
      most = std::max(most, messages.Bring(depth + 1));
      ASSERT_NO_FATAL_FAILURE(messages.Pop());
      if (i % 100 == 99) (void)messages.Shrink();
    }
    EXPECT_LE(most, depth + 40 + 64) << depth;
  }
}

TEST(MessageQueue, GivesMemoryBackOnceABurstIsHalfGone) {
  Numbered messages;
  const std::size_t least = messages.Shrink();
  EXPECT_GE(least, 8u);
  const std::size_t burst = messages.Bring(3200);
  EXPECT_EQ(messages.Shrink(), burst);
  const std::size_t held = messages.Bring(1700);
  EXPECT_EQ(messages.Shrink(), held) << "more than half is still in use";
  messages.Bring(1000);
  EXPECT_LT(messages.Shrink(), 1100u);
  messages.Bring(0);
  EXPECT_EQ(messages.Shrink(), least);
  messages.Bring(100);
  messages.Bring(0);
}

}  // namespace
}  // namespace qvsvr::kelvo
