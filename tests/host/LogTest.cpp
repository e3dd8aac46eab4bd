#include "host/Log.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/FakeHost.h"

namespace qvsvr::kelvo {
namespace {

TEST(LogPrintf, ThresholdDecidesWhatIsSent) {
  const struct {
    std::uint32_t threshold;
    int level;
    bool shown;
  } kRows[] = {
      {0xFFFFFFFF, LogTrace, true}, {0, LogTrace, true},       {1, LogTrace, false},
      {25, LogTrace, false},        {25, LogInfo, true},       {26, LogInfo, false},
      {100, LogCritical, true},     {101, LogCritical, false}, {0x7FFFFFFF, LogCritical, false},
      {0xFFFFFFFE, LogTrace, true},  // below zero as a signed number
  };
  FakeHost host;
  for (const auto& row : kRows) {
    host.ForgetTraffic();
    host.SetThreshold(row.threshold);
    const std::size_t queries = host.LevelQueries();
    LogPrintf(row.level, "line %d", row.level);
    EXPECT_EQ(host.CountLines(row.level, "line "), row.shown ? 1U : 0U)
        << "threshold " << row.threshold << " level " << row.level;
    EXPECT_EQ(host.LevelQueries(), queries + 1) << "the host may change its level at any time";
    EXPECT_EQ(LogLevelEnabled(row.level), row.shown);
    EXPECT_EQ(QueryLogLevel(), row.threshold);
  }
}

TEST(LogPrintf, OnlyTraceLinesAreLongerThanTheBuffer) {
  const struct {
    std::size_t length;
    int level;
    std::size_t sent;
  } kRows[] = {
      {1, LogInfo, 1},      {510, LogInfo, 510},
      {511, LogInfo, 511},  {512, LogInfo, 511},
      {600, LogInfo, 511},  {600, LogCritical, 511},
      {511, LogTrace, 511}, {512, LogTrace, 512},
      {600, LogTrace, 600}, {100'000, LogTrace, 100'000},
  };
  FakeHost host;
  for (const auto& row : kRows) {
    host.ForgetTraffic();
    std::string text(row.length - 1, 'x');
    text += 'y';
    LogPrintf(row.level, "%s", text.c_str());
    ASSERT_EQ(host.Lines().size(), 1U);
    const FakeHost::LogLine line = host.Lines()[0];
    EXPECT_EQ(line.text, text.substr(0, row.sent)) << row.length << " at level " << row.level;
    EXPECT_EQ(line.length, row.sent + 1) << "the NUL is counted";
  }
}

TEST(LogPrintf, SendsNothingWithoutATextOrAHost) {
  {
    const FakeHost host;
    LogPrintf(LogCritical, "%s", "");
    EXPECT_TRUE(host.Lines().empty());
  }
  LogPrintf(LogCritical, "nobody %s", "listens");
  EXPECT_FALSE(LogLevelEnabled(LogCritical));
}

TEST(LogPrintf, SendsRequestsAsTheHostKnowsThem) {
  static KelvoHostRequest query;
  static KelvoHostRequest line;
  SetHostFunction([](const KelvoHostRequest* request, KelvoHostReply* reply) -> std::uint32_t {
    (request->SubCode == 1 ? query : line) = *request;
    reply->Status = 50;
    return 99;  // whatever the host returns, the line goes its way
  });
  LogPrintf(75, "disk %u", 7U);
  SetHostFunction(nullptr);
  for (const KelvoHostRequest* request : {&query, &line}) {
    EXPECT_EQ(request->Source, 0x00050000U);
    EXPECT_EQ(request->Class, 64U);
    EXPECT_EQ(request->RequestId, 0U);
  }
  EXPECT_EQ(query.Length, 0U);
  EXPECT_EQ(query.Payload, nullptr);
  EXPECT_EQ(line.SubCode, 0x01000002U);
  EXPECT_EQ(line.Length, 7U);
  EXPECT_EQ(line.u.Log.Level, 75U);
}

TEST(LogPrintf, ThreadsDoNotMixTheirLines) {
  FakeHost host;
  std::vector<std::thread> threads;
  for (char letter = 'a'; letter < 'e'; ++letter) {
    threads.emplace_back([letter] {
      for (int i = 0; i < 200; ++i) LogPrintf(i % 2, "%s", std::string(700, letter).c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto lines = host.Lines();
  EXPECT_EQ(lines.size(), 800U);
  for (const auto& line : lines) {
    EXPECT_EQ(line.text, std::string(line.level == 0 ? 700 : 511, line.text[0]));
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
