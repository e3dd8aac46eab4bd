#include "media/RecordPath.h"

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

TEST(RecordPath, IndexPathIsCut) {
  EXPECT_EQ(IndexPath("/d/1530-10010100.ps"), "/d/1530-10010100.psi");
  EXPECT_EQ(IndexPath(std::string(259, 'x')), std::string(259, 'x') + 'i');
  EXPECT_EQ(IndexPath(std::string(270, 'x')), std::string(260, 'x'));
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

}  // namespace
}  // namespace qv::kelvo
