#include "record/RecordStats.h"

#include <gtest/gtest.h>

#include "tests/support/FakeHost.h"

namespace qvsvr::kelvo {
namespace {

// The lines that count messages and frames are seen in tests/plugin.
TEST(RecordStats, OnlyMinutesWithBytesCountForTheLongTermFigures) {
  FakeHost host;
  RecordStats stats{1234, 5678, 1000000, 1000001, 5, 4, 6000};
  stats.Dropped = {1, 2, 3, 4};
  stats.Ch = stats.PES = 5;
  for (const std::uint64_t bytes : {0u, 123456789u, 0u, 123456790u, 123456802u, 0u}) {
    stats.LastBytes = bytes;
    host.ForgetTraffic();
    PublishStats(stats);
  }
  const auto lines = host.Lines();
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0].text, "MsgQ - InQ:1,234, ExecutedLastMin: 1,000,000, ExecutedTotal:1,000,001");
  EXPECT_EQ(lines[1].text,
            "Wrk - msgcur:5us, msgmin:4us, msgmax:6,000us, nmsgcur:0us, "
            "nmsgmin:18,446,744,073,709,551,615us, nmsgmax:0us");
  EXPECT_EQ(lines[4].text, "Frames Dropped - I: 0 P: 0 B: 0 Audio: 0 Ch: 0 PES: 0");
  EXPECT_EQ(lines[6].text,
            "Bytes Written - Last: 0 Min: 123,456,789 Max: 123,456,802 Median: 123,456,795 "
            "Average: 123,456,793");
  EXPECT_EQ(lines[7].text, "MsgQ - InQ:1,234, oldest:5,678ms");
}

}  // namespace
}  // namespace qvsvr::kelvo
