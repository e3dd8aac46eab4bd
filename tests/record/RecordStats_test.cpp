#include "record/RecordStats.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/FakeHost.h"

namespace qvsvr::kelvo {
namespace {

std::vector<std::string> Publish(RecordStats& stats) {
  FakeHost host;
  PublishStats(stats);
  std::vector<std::string> texts;
  for (const auto& line : host.Lines()) {
    EXPECT_EQ(line.level, 0);
    texts.push_back(line.text);
  }
  return texts;
}

TEST(RecordStats, SevenLinesInTheirOrderThenTheMinuteStartsAnew) {
  RecordStats stats{1234, 1000000, 1000001, 5, 4, 6000};
  // In the order of the lines.
  std::tie(stats.eav, stats.eptz, stats.idev, stats.ievt, stats.iarc, stats.istg, stats.icas) =
      std::tuple(7777, 1000, 2, 3, 4, 5, 6);
  std::tie(stats.adev, stats.aarc, stats.astg) = std::tuple(7, 8, 9000);
  stats.Dropped = {1, 2, 3, 4000};
  std::tie(stats.Ch, stats.PES) = std::tuple(1100, 10);
  stats.Written = {5, 6, 7, 8000};
  std::tie(stats.Motion, stats.Alarm, stats.PTZ) = std::tuple(9, 10, 11);
  stats.LastBytes = 123456789;
  const std::vector<std::string> expected{
      "MsgQ - InQ:1,234, ExecutedLastMin: 1,000,000, ExecutedTotal:1,000,001",
      "Wrk - msgcur:5us, msgmin:4us, msgmax:6,000us, nmsgcur:0us, "
      "nmsgmin:18,446,744,073,709,551,615us, nmsgmax:0us",
      "eCnt - eav:7,777, eptz:1000, idev:2, ievt:3, iarc:4, istg:5, icas:6",
      "eCnt - adev:7, aarc:8, astg:9000",
      "Frames Dropped - I: 2 P: 3 B: 4,000 Audio: 1 Ch: 1,100 PES: 10",
      "Frames Written - I: 6 P: 7 B: 8,000 Audio: 5 Motion: 9 Alarm: 10 PTZ: 11",
      "Bytes Written - Last: 123,456,789 Min: 123,456,789 Max: 123,456,789 Median: 123,456,789 "
      "Average: 123,456,789",
  };
  EXPECT_EQ(Publish(stats), expected);

  const std::vector<std::string> quiet = Publish(stats);
  ASSERT_EQ(quiet.size(), 7u);
  EXPECT_EQ(quiet[0], expected[0]);
  EXPECT_EQ(quiet[3], expected[3]);
  EXPECT_EQ(quiet[4], "Frames Dropped - I: 0 P: 0 B: 0 Audio: 0 Ch: 0 PES: 0");
  EXPECT_EQ(quiet[5], "Frames Written - I: 0 P: 0 B: 0 Audio: 0 Motion: 0 Alarm: 0 PTZ: 0");
  EXPECT_EQ(quiet[6], "Bytes Written - Last: 0" + expected[6].substr(33));
}

TEST(RecordStats, OnlyMinutesWithBytesCountForTheFigures) {
  RecordStats stats;
  for (const std::uint64_t bytes : {0u, 100u, 0u, 300u, 0u}) {
    stats.LastBytes = bytes;
    Publish(stats);
  }
  EXPECT_EQ(std::tuple(stats.Periods, stats.TotalBytes, stats.MinBytes, stats.MaxBytes,
                       stats.MedianBytes, stats.AverageBytes),
            std::tuple(2, 400, 100, 300, 200, 200));
}

}  // namespace
}  // namespace qvsvr::kelvo
