#include "record/MessageQueue.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>

namespace qvsvr::kelvo {
namespace {

RecordMessage Numbered(std::uint32_t number) {
  RecordMessage message;
  message.Source = number;
  message.Header.Extension[127] = static_cast<std::uint8_t>(number);
  return message;
}

// A queue beside the numbers that must be in it.
struct Checked {
  void Push() {
    queue.Push(Numbered(next));
    model.push_back(next++);
  }
  void Pop() {
    const RecordMessage message = queue.Pop();
    ASSERT_EQ(message.Source, model.front());
    ASSERT_EQ(message.Header.Extension[127], static_cast<std::uint8_t>(model.front()));
    model.pop_front();
  }
  void Fill(std::size_t size) {
    while (queue.Size() < size) Push();
  }
  void Drain(std::size_t size) {
    while (queue.Size() > size) ASSERT_NO_FATAL_FAILURE(Pop());
  }
  MessageQueue queue;
  std::deque<std::uint32_t> model;
  std::uint32_t next = 0;
};

TEST(MessageQueue, KeepsOrderWhateverThePattern) {
  Checked checked;
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    checked.Fill(random() % 200);
    ASSERT_NO_FATAL_FAILURE(checked.Drain(random() % 200));
    if (random() % 10 == 0) {
      const auto freed = checked.queue.Shrink();
    }
    ASSERT_EQ(checked.queue.Size(), checked.model.size());
    ASSERT_EQ(checked.queue.Empty(), checked.model.empty());
    ASSERT_GE(checked.queue.Capacity(), checked.queue.Size());
  }
  ASSERT_NO_FATAL_FAILURE(checked.Drain(0));
}

TEST(MessageQueue, SteadyTrafficNeedsNoMoreMemory) {
  for (const std::size_t depth : {1u, 31u, 32u, 33u, 500u}) {
    Checked checked;
    checked.Fill(depth + 40);
    ASSERT_NO_FATAL_FAILURE(checked.Drain(depth));
    std::size_t most = 0;
    for (int i = 0; i < 1000; ++i) {
      checked.Push();
      ASSERT_NO_FATAL_FAILURE(checked.Pop());
      most = std::max(most, checked.queue.Capacity());
    }
    EXPECT_LE(most, depth + 40 + 64) << depth;
  }
}

TEST(MessageQueue, GivesMemoryBackOnceABurstIsHalfGone) {
  Checked checked;
  { const auto freed = checked.queue.Shrink(); }
  const std::size_t least = checked.queue.Capacity();
  EXPECT_GE(least, 8u);

  checked.Fill(3200);
  const std::size_t burst = checked.queue.Capacity();
  { const auto freed = checked.queue.Shrink(); }
  EXPECT_EQ(checked.queue.Capacity(), burst);
  ASSERT_NO_FATAL_FAILURE(checked.Drain(1700));
  const std::size_t held = checked.queue.Capacity();
  { const auto freed = checked.queue.Shrink(); }
  EXPECT_EQ(checked.queue.Capacity(), held) << "more than half is still in use";
  ASSERT_NO_FATAL_FAILURE(checked.Drain(1000));
  { const auto freed = checked.queue.Shrink(); }
  EXPECT_LT(checked.queue.Capacity(), 1100u);
  ASSERT_NO_FATAL_FAILURE(checked.Drain(0));
  { const auto freed = checked.queue.Shrink(); }
  EXPECT_EQ(checked.queue.Capacity(), least);
  checked.Fill(100);
  ASSERT_NO_FATAL_FAILURE(checked.Drain(0));
}

}  // namespace
}  // namespace qvsvr::kelvo
