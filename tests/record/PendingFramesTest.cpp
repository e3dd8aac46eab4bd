#include "record/PendingFrames.h"

#include <gtest/gtest.h>

#include <list>
#include <random>

namespace qvsvr::kelvo {
namespace {

PendingFrame* AppendFrame(PendingFrames& frames, int slot, int type, std::int64_t time = 0) {
  PendingFrame* frame = frames.Allocate();
  frame->Slot = static_cast<std::uint8_t>(slot);
  frame->Type = static_cast<std::uint8_t>(type);
  frame->Time = time;
  frames.Append(frame);
  return frame;
}

// Every link against plain lists, under appends and erasures anywhere.
TEST(PendingFrames, LinksAgreeWithPlainListsUnderRandomErasure) {
  std::mt19937 random(7);
  PendingFrames frames;
  std::list<PendingFrame*> all;
  for (int step = 0; step < 4000; ++step) {
    if (random() % 100 < (step % 1000 < 500 ? 70 : 35) || all.empty()) {
      all.push_back(
          AppendFrame(frames, static_cast<int>(random() % 3), static_cast<int>(random() % 4)));
    } else {
      const auto at = std::next(all.begin(), static_cast<std::ptrdiff_t>(random() % all.size()));
      frames.Erase(*at);
      all.erase(at);
    }
    if (step % 50 != 0) continue;
    ASSERT_EQ(frames.Size(), all.size());
    const PendingFrame* last = nullptr;
    std::array<const PendingFrame*, 3> lastOf{}, keyOf{};
    for (const PendingFrame* frame : all) {
      ASSERT_EQ(frame->Older, last);
      ASSERT_EQ(last != nullptr ? last->Newer : frames.Front(), frame);
      const PendingFrame*& inSlot = lastOf[frame->Slot];
      ASSERT_EQ(frame->SlotOlder, inSlot);
      ASSERT_EQ(inSlot != nullptr ? inSlot->SlotNewer : frames.SlotFront(frame->Slot), frame);
      last = inSlot = frame;
      if (!frame->IsKey()) continue;
      const PendingFrame*& key = keyOf[frame->Slot];
      if (key != nullptr) {
        ASSERT_EQ(key->NextKey, frame);
      }
      key = frame;
    }
    ASSERT_EQ(frames.Back(), last);
    for (int slot = 0; slot < 3; ++slot) {
      const auto at = static_cast<std::size_t>(slot);
      ASSERT_EQ(frames.SlotBack(slot), lastOf[at]);
      if (keyOf[at] != nullptr) {
        ASSERT_EQ(keyOf[at]->NextKey, nullptr);
      }
    }
  }
}

TEST(PendingFrames, SteadyLoadReusesMemoryAndABurstGivesItBack) {
  PendingFrames frames;
  const auto pass = [&](std::size_t pending) {
    while (frames.Size() < pending) AppendFrame(frames, 0, 2);
    while (frames.Size() > pending) frames.Erase(frames.Front());
  };
  pass(1000);
  const std::size_t steady = frames.Capacity();
  for (int i = 0; i < 5000; ++i) {
    AppendFrame(frames, 0, 2);
    frames.Erase(frames.Front());
  }
  pass(500);
  EXPECT_LE(frames.Capacity(), steady + 64);
  EXPECT_GE(frames.Capacity(), 1000u) << "a load that swings would allocate each time";

  pass(100'000);
  pass(100);
  EXPECT_LT(frames.Capacity(), 1000u) << "must not wait for the buffer to become empty";
  pass(0);
  EXPECT_LE(frames.Capacity(), 320u);
}

}  // namespace
}  // namespace qvsvr::kelvo
