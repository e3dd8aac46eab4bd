#include "record/RecordDecision.h"

#include <gtest/gtest.h>

#include <limits>

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

TEST(RecordDecision, TimeArithmeticHoldsAtTheLimits) {
  EXPECT_TRUE(Within(1000, 1100, 100));
  EXPECT_TRUE(Within(1100, 1000, 100));
  EXPECT_FALSE(Within(1000, 1101, 100));
  EXPECT_TRUE(Within(5, 5, 0));
  EXPECT_FALSE(Within(5, 5, -1));
  EXPECT_FALSE(Within(kMin, kMax, kMax));
  EXPECT_TRUE(Within(kMax, kMax, kMax));
  EXPECT_EQ(SubtractMs(100, 30), 70);
  EXPECT_EQ(SubtractMs(100, -30), 130);
  EXPECT_EQ(SubtractMs(kMin + 5, 6), kMin);
  EXPECT_EQ(SubtractMs(kMax - 5, -6), kMax);
}

struct ScheduleRow {
  Schedule schedule;
  int hour, flags;
  bool ptz, wanted;
};

TEST(RecordDecision, FirstEntryThatCoversTheHourDecides) {
  const ScheduleRow rows[] = {
      {{}, 5, 0, false, false},
      {{}, 5, kFlagMotion, true, false},  // without a schedule only an alarm records
      {{}, 5, kFlagAlarm, false, true},
      {{{5, 5, 2}}, 5, 0, false, true},
      {{{5, 5, 2}}, 4, kFlagMotion, false, false},
      {{{5, 5, 2}}, 6, 0, false, false},
      {{{0, 167, 1}}, 0, 0, false, false},
      {{{0, 167, 1}}, 0, kFlagMotion, false, true},
      {{{0, 167, 1}}, 0, 0, true, true},  // a moving camera counts as motion
      {{{0, 167, 0}, {0, 167, 2}}, 9, kFlagMotion, false, false},
      {{{0, 167, 0}}, 9, kFlagAlarm, false, true},
      {{{0, 8, 0}, {9, 167, 2}}, 9, 0, false, true},
      {{{0, 167, 3}}, 9, kFlagMotion, true, false},
  };
  for (const ScheduleRow& row : rows) {
    ChannelSlot slot;
    slot.Schedule = row.schedule;
    PendingFrame frame;
    frame.Flags = static_cast<std::uint8_t>(row.flags);
    frame.Ptz = row.ptz;
    EXPECT_EQ(ShouldRecord(slot, frame, row.hour), row.wanted) << "row " << &row - rows;
  }
}

struct LapseRow {
  int defaultLapse;
  Schedule schedule;
  int slot;
  std::optional<std::int64_t> lastWritten;
  bool due;
};

TEST(RecordDecision, TimeLapseIsDueAfterItsInterval) {
  constexpr std::int64_t kTime = 1'000'000;
  const LapseRow rows[] = {
      {0, {}, 0, {}, false},
      {1000, {}, 0, {}, true},
      {1000, {}, 15, kTime - 1000, true},
      {1000, {}, 16, {}, false},  // audio
      {1000, {}, 0, kTime - 999, false},
      {1000, {}, 0, kTime, false},
      {1000, {}, 0, kTime + 1, true},  // the clock went back
      {1000, {{0, 167, 500}}, 0, kTime - 500, true},
      {1000, {{0, 167, 2000}}, 0, kTime - 1000, false},
      {1000,
       {{0, 167, 0}, {0, 167, 500}},
       0,
       kTime - 500,
       true},  // an entry below 1 is passed over
      {1000, {{8, 9, 500}}, 0, kTime - 500, false},
      {-1, {{0, 167, 1}}, 0, kTime - 1, true},
      {-1, {}, 0, {}, false},
  };
  for (const LapseRow& row : rows) {
    ChannelSlot slot;
    slot.LapseSchedule = row.schedule;
    slot.LastWritten = row.lastWritten;
    PendingFrame frame;
    frame.Time = kTime;
    frame.Slot = static_cast<std::uint8_t>(row.slot);
    EXPECT_EQ(ShouldLapse(slot, frame, 7, row.defaultLapse), row.due) << "row " << &row - rows;
  }
}

TEST(RecordDecision, HugeAndNegativeWaitingTimesAreHarmless) {
  ChannelSlot slot;
  PendingFrame frame;
  frame.Time = kMax;
  slot.PreAlarm = slot.PreMotion = std::numeric_limits<std::int32_t>::min();
  EXPECT_FALSE(InWaitingTime(slot, frame, frame.Time));
  slot.PreAlarm = std::numeric_limits<std::int32_t>::max();
  EXPECT_TRUE(InWaitingTime(slot, frame, kMax - 2'147'483'647'000));
  EXPECT_FALSE(InWaitingTime(slot, frame, kMax - 2'147'483'647'001));
  EXPECT_FALSE(InWaitingTime(slot, frame, kMin));
}

}  // namespace
}  // namespace qvsvr::kelvo
