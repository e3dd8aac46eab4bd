#include "storage/RecordVolume.h"

#include <gtest/gtest.h>

namespace qvsvr::kelvo {
namespace {

TEST(RecordVolume, UsableSpaceLeavesReservationsAndReserve) {
  EXPECT_EQ(UsableGB(1000, 99, 0, 10), -1);
  EXPECT_EQ(UsableGB(1000, 101, 0, 10), 1);
  EXPECT_EQ(UsableGB(1000, 500, 20, 10), 380);
  EXPECT_EQ(UsableGB(199, 50, 0, 1), 49);  // the reserve is cut to whole GB
  EXPECT_EQ(UsableGB(4'000'000'000u, 4'000'000'000u, 0, 100), 0);
  EXPECT_EQ(UsableGB(10, 5, 5'000'000'000, 0), -4'999'999'995);
}

TEST(RecordVolume, MostRoomWinsAndTheEarlierOnATie) {
  struct Case {
    std::map<std::string, std::int64_t> usable;
    std::int64_t desired;
    std::string expected;
  };
  const Case cases[] = {
      {{}, 1, ""},
      {{{"a", 5}, {"b", 9}, {"c", 7}}, 1, "b"},
      {{{"a", 9}, {"b", 9}}, 1, "a"},
      {{{"a", 4}, {"b", 5}}, 5, "b"},  // exactly enough
      {{{"a", 4}, {"b", 4}}, 5, ""},
      {{{"a", -1}, {"b", 0}}, 1, ""},
  };
  for (const Case& row : cases) {
    std::map<std::string, DriveRecord> drives;
    for (const auto& [name, usable] : row.usable) drives[name] = {};
    EXPECT_EQ(ChooseVolume(
                  drives, row.desired,
                  [&](const std::string& name, const DriveRecord&) { return row.usable.at(name); }),
              row.expected);
  }
}

TEST(RecordVolume, CountsEntriesIntoTheStateWithoutRoom) {
  RecordingState state;
  for (const bool found : {true, false, false, true, false}) state.Note(found);
  EXPECT_TRUE(state.recordingNotPossible);
  EXPECT_EQ(state.recordNotPossibleCount, 2u);
}

}  // namespace
}  // namespace qvsvr::kelvo
