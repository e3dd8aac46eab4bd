#include "media/PackedTime.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/Clock.h"

namespace qv::kelvo {
namespace {

TEST(PackedTime, HoldsTheYears2000To2127) {
  const struct {
    UtcMs time;
    std::optional<PackedTime> packed;
  } rows[] = {
      {946'684'799'999, std::nullopt},                      // 1999-12-31 23:59:59.999
      {946'684'800'000, PackedTime{0x0021, 0}},             // 2000-01-01
      {951'782'400'123, PackedTime{0x005D, 123}},           // 2000-02-29
      {4'985'971'199'999, PackedTime{0xFF9F, 86'399'999}},  // 2127-12-31 23:59:59.999
      {4'985'971'200'000, std::nullopt},                    // 2128-01-01
      {std::numeric_limits<UtcMs>::max(), std::nullopt},
      {std::numeric_limits<UtcMs>::min(), std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Pack(row.time), row.packed) << row.time;
    if (row.packed) {
      EXPECT_EQ(Unpack(*row.packed), row.time);
    }
  }
  const int bad[][3] = {{1999, 1, 1},  {2128, 1, 1}, {2025, 0, 1},
                        {2025, 13, 1}, {2025, 1, 0}, {2025, 1, 32}};
  for (const auto& [year, month, day] : bad) {
    EXPECT_EQ(PackDate(year, month, day), std::nullopt) << year << '-' << month << '-' << day;
  }
}

TEST(PackedTime, EveryStoredDateHasAMomentAndOverflowGoesIntoTheNextDate) {
  EXPECT_EQ(Carry({0x32CF, 86'399'999}), (PackedTime{0x32CF, 86'399'999}));
  EXPECT_EQ(Carry({0x32CF, 86'400'500}), (PackedTime{0x32D0, 500}));
  // Behind the 31st the number is that of day 0 of the next month, which is the same day again.
  EXPECT_EQ(Carry({0x32FF, 86'400'000}), (PackedTime{0x3300, 0}));
  EXPECT_EQ(Unpack({0x3300, 0}), Unpack({0x32FF, 0}));
  EXPECT_EQ(Unpack({0x32FF, 86'400'500}), Unpack({0x3300, 500}));
  EXPECT_EQ(Unpack({0, 0}), 943'920'000'000);           // day 0 of month 0 of 2000: 1999-11-30
  EXPECT_EQ(Unpack({0x005F, 0}), Unpack({0x0062, 0}));  // 31 February 2000: 2 March
}

}  // namespace
}  // namespace qv::kelvo
