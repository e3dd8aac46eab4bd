#include "tree/RecordPath.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

constexpr UtcMs kTime = 1'750'000'000'000;  // 2025-06-15 17:06:40 in the tests' zone

TEST(StreamId, PacksAndUnpacksWithoutSpill) {
  const StreamID id = MakeStreamID(0x13, 0xF1234567, 0x145, 0x267);
  EXPECT_EQ(id, 0x31234567u);  // context 3, provider 123, device 45, input 67
  EXPECT_EQ(ContextOf(id), 3u);
  EXPECT_EQ(ProviderOf(id), 0x01230000u);
  EXPECT_EQ(DeviceOf(id), 0x45u);
  EXPECT_EQ(InputOf(id), 0x67u);
}

TEST(RecordPath, NamesFollowLocalTimeAndIdsAreUpperCase) {
  EXPECT_EQ(Slashed(MakePath("/d/", kTime, 0x1001010A, CreateDirectories::No)),
            "/d/2025/06/15/17/0640-1001010A.ps");
  EXPECT_EQ(Slashed(MakePath("/d/", kTime, 0, CreateDirectories::No)), "/d/2025/06/15/17/");
  EXPECT_FALSE(boost::filesystem::exists("/d"));
  // A file in the way of a directory is left to the open.
  const TempTree tree;
  tree.Write("blocked", "x");
  EXPECT_EQ(Slashed(MakePath(tree.Root() + "/blocked/", kTime, 1, CreateDirectories::Yes)),
            Slashed(tree.Root()) + "/blocked/2025/06/15/17/0640-00000001.ps");
}

TEST(RecordPath, ParsesBareNames) {
  const struct {
    const char* name;
    bool valid;
    int minute = 0, second = 0;
    StreamID id = 0;
    const char* suffix = "";
    bool duplicate = false;
  } rows[] = {
      {"1530-ffffFFFF.PS", true, 15, 30, 0xFFFFFFFF},
      {"9961-10010100.ps", true, 99, 61, 0x10010100},
      {"1530-1001010Aa.ps", true, 15, 30, 0x1001010A, "a", true},
      {"1530-1001010Aaa.ps", true, 15, 30, 0x1001010A, "aa", false},
      {"1530-1001010A.psi", false},
      {"1530-1001010.ps", false},
      {"1530_1001010A.ps", false},
      {"+530-1001010A.ps", false},
      {"1530-0x01010A.ps", false},
      {"", false},
  };
  for (const auto& row : rows) {
    const ParsedName parsed = ParseName(row.name);
    EXPECT_EQ(parsed.valid, row.valid) << row.name;
    EXPECT_EQ(parsed.minute, row.minute) << row.name;
    EXPECT_EQ(parsed.second, row.second) << row.name;
    EXPECT_EQ(parsed.id, row.id) << row.name;
    EXPECT_EQ(parsed.suffix, row.suffix) << row.name;
    EXPECT_EQ(parsed.isDuplicate, row.duplicate) << row.name;
  }
}

TEST(RecordPath, ParsesFullPathsFieldByField) {
  const struct {
    const char* path;
    bool parsed;
    PathFields fields;
  } rows[] = {
      {"/2025/06/15/17/0640-1001010Aa.psi", true, {2025, 6, 15, 17, 6, 40, 0x1001010A}},
      {"/06/15/17/0640-1001010A.ps", true, {1, 2, 3, 4, 6, 40, 0x1001010A}},
      {"/d//2025/x6/15/-1/0640-1001010A.ps", true, {2025, 2, 15, 4, 6, 40, 0x1001010A}},
      {"/2025/06/15/99999999999/0640-1001010A.ps", true, {2025, 6, 15, 4, 6, 40, 0x1001010A}},
      {"/2025/06/15/17/0640-1001010G.ps", false, {2025, 6, 15, 17, 5, 6, 7}},
      {"/2025/06/15/17/06x0-1001010A.ps", false, {2025, 6, 15, 17, 6, 6, 0x1001010A}},
      {"/2025/06/15/17/", false, {2025, 6, 15, 17, 5, 6, 7}},
  };
  for (const auto& row : rows) {
    PathFields fields = {1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(ParsePath(row.path, fields), row.parsed) << row.path;
    EXPECT_EQ(fields, row.fields) << row.path;
  }
}

TEST(RecordPath, ReadsTimesAndKeysOutOfPaths) {
  // Local time is one hour ahead of UTC in winter and two in summer.
  const struct {
    const char* path;
    std::int64_t first;
    std::uint32_t key;
    std::int64_t later = 0;  // by how much the second meaning is
  } rows[] = {
      {"a/2025", 1'735'686'000, 0},
      {"a/2025/06/15/17/0640-0012aBcD.ps", 1'750'000'000, 0x0012ABCD},
      {"a//2025//06//15//17//", 1'749'999'600, 0},
      {"a/2025/06/15/17/6-00120100a.ps", 1'749'999'606, 0x00120100},
      {"a/2025/06/15/17/0640-0012010.ps", 1'750'000'000, 0},
      {"a/2025/06/15/17/0640-+0120100.ps", 1'750'000'000, 0},
      {"a/2025/10/26/02/3000-00120100.ps", 1'761'438'600, 0x00120100, 3600},
      {"a/2040/07/01/14", 2'224'756'800, 0},                      // beyond 32 bits
      {"a/2025/03/30/02/3000-00120100.ps", kNoTime, 0x00120100},  // that hour was left out
      {"a/2025/02/30/05/3000-00120100.ps", kNoTime, 0x00120100},
      {"a/2025/06/15/17/0640-00120100.ps/x", kNoTime, 0x00120100},
      {"a/2025/06/15/17/0640.ps", kNoTime, 0},
      {"a/2025/06/15x", kNoTime, 0},
      {"a/-2025", kNoTime, 0x2025},
      {"a/99999999999999999999", kNoTime, 0},
      {"a/", kNoTime, 0},
      {"b/2025", kNoTime, 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(TimeOfPath(row.path, "a/"), (PathTime{row.first, row.first + row.later})) << row.path;
    EXPECT_EQ(FileNameKey(row.path), row.key) << row.path;
  }
  EXPECT_EQ(TimeOfPath("d/a/2025/06/15/17", "d/a/").first, 1'749'999'600);
}

TEST(LocalTime, HourOfWeekRunsFromSundayThroughSaturdayAndBack) {
  constexpr UtcMs kHour = 3'600'000, kSunday = 1'749'938'400'000;  // 2025-06-15 00:00, local
  HourOfWeekClock clock;
  for (int hour = 0; hour < 169; ++hour) {
    EXPECT_EQ(clock.HourOfWeek(kSunday + hour * kHour), hour % 168);
    EXPECT_EQ(clock.HourOfWeek(kSunday + hour * kHour + kHour - 1), hour % 168);
  }
  // Both changes of the clock are on a Sunday: the hour from 02:00 is left out, or comes twice.
  const std::pair<UtcMs, int> others[] = {
      {kSunday - 1, 167},     {-1, 4 * 24},  // 1970-01-01 was a Thursday; an hour east of Greenwich
      {1'743'296'399'999, 1}, {1'743'296'400'000, 3}, {1'761'436'799'999, 1},
      {1'761'436'800'000, 2}, {1'761'440'400'000, 2}, {1'761'444'000'000, 3}};
  for (const auto& [time, hour] : others) EXPECT_EQ(clock.HourOfWeek(time), hour) << time;
}

}  // namespace
}  // namespace qv::kelvo
