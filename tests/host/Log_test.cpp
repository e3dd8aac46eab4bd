#include "host/Log.h"

#include <gtest/gtest.h>

#include "tests/support/FakeHost.h"

namespace qvsvr::kelvo {
namespace {

TEST(LogPrintf, ThresholdDecidesWhatIsSentAndOnlyTraceLinesAreLongerThanTheBuffer) {
  LogPrintf(LogCritical, "nobody listens");
  EXPECT_FALSE(LogLevelEnabled(LogCritical));
  static KelvoHostRequest last;
  SetHostFunction([](const KelvoHostRequest* request, KelvoHostReply*) -> std::uint32_t {
    last = *request;
    return 99;  // whatever the host returns, the line goes its way
  });
  LogPrintf(LogError, "x");
  SetHostFunction(nullptr);
  EXPECT_EQ(last.Source, 0x00050000U);
  EXPECT_EQ(last.SubCode, 0x01000002U);
  const struct {
    std::uint32_t threshold;
    int level;
    std::size_t length, sent;
  } kRows[] =
      {
          {0xFFFFFFFF, LogTrace, 1, 1}, {0, LogTrace, 511, 511},
          {0, LogTrace, 512, 512},      {0, LogTrace, 100'000, 100'000},
          {1, LogTrace, 5, 0},          {25, LogInfo, 511, 511},
          {25, LogInfo, 512, 511},      {26, LogInfo, 5, 0},
          {100, LogCritical, 600, 511}, {101, LogCritical, 5, 0},
          {0xFFFFFFFE, LogTrace, 5, 5},  // below zero as a signed number
          {0xFFFFFFFF, LogInfo, 0, 0},   // without a text
      };
  FakeHost host;
  for (const auto& row : kRows) {
    SCOPED_TRACE(testing::Message() << row.threshold << ' ' << row.level << ' ' << row.length);
    host.ForgetTraffic();
    host.SetThreshold(row.threshold);
    EXPECT_EQ(LogLevelEnabled(row.level), row.sent != 0 || row.length == 0);
    const std::string text(row.length, 'x');
    LogPrintf(row.level, "%s", text.c_str());
    ASSERT_EQ(host.Lines().size(), row.sent != 0 ? 1u : 0u);
    if (row.sent == 0) continue;
    const FakeHost::LogLine line = host.Lines()[0];
    EXPECT_EQ(line.level, row.level);
    EXPECT_EQ(line.text, text.substr(0, row.sent));
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
