#include <gtest/gtest.h>
#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <stdexcept>

#include "archiving/CLocalDiskScanner.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"
#include "tests/support/Zone.h"
#include "tree/BucketFetch.h"
#include "tree/CFileInfo.h"
#include "tree/FileSystemBase.h"
#include "tree/LocalTime.h"

namespace qv::kelvo {
namespace {

constexpr UtcMs kHour = 3'600'000, kDay = 24 * kHour;

struct TreeFixture : FileSystemBase {
  explicit TreeFixture(Platform& system) : FileSystemBase(system) {}
  void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                  const ArchiveFilter*) override {
    ++asked;
    list = (flags & kVolumesLocal) != 0 ? local : std::vector<std::string>{};
  }
  void GetTargets(TargetList& list, std::uint32_t, const ArchiveFilter*) override { list.clear(); }
  std::vector<std::string> local;
  int asked = 0;
};

class HourTree : public testing::Test {
 protected:
  HourTree() { files.local = {tree.MakeDirectory("a"), tree.MakeDirectory("b")}; }

  // The hour directories that the walk from `start` visits, as "day/hour".
  std::vector<std::string> WalkFrom(UtcMs start, UtcMs end) {
    std::vector<std::string> visited;
    for (UtcMs time = LocalHourStart(start); files.FindNextHour(time, end);
         time = NextLocalHour(time)) {
      visited.push_back(HourDirectory("", time).substr(8, 5));
      if (visited.size() > 500) throw std::runtime_error("the walk doesn't end");
    }
    return visited;
  }

  qvsvr::kelvo::FakeHost host;
  TempTree tree;
  TestBundle bundle;
  TreeFixture files{bundle.platform};
};

TEST_F(HourTree, VisitsEveryHourOfTheNightsInWhichClocksChange) {
  const struct {
    const char* zone;
    UtcMs firstDay;                  // some moment of the day before
    std::vector<std::string> hours;  // in order, from 00 to 03 or what there is of it
  } nights[] = {
      {"Europe/Berlin", 1'761'390'000'000, {"26/00", "26/01", "26/02", "26/02", "26/03"}},
      {"Europe/Berlin", 1'774'702'800'000, {"29/00", "29/01", "29/03"}},
      {"America/Sao_Paulo", 1'541'246'400'000, {"04/01", "04/02", "04/03"}},  // no midnight
      {"America/Havana", 1'762'000'000'000, {"02/00", "02/00", "02/01", "02/02", "02/03"}},
      {"Australia/Lord_Howe", 1'759'540'000'000, {"05/00", "05/01", "05/02", "05/03"}},
  };
  for (const auto& night : nights) {
    SCOPED_TRACE(night.zone);
    const Zone zone(night.zone);
    const UtcMs midnight = NextLocalDay(night.firstDay);
    EXPECT_EQ(ToLocal(midnight - 1).day, ToLocal(night.firstDay).day);
    // All hours of both days exist.
    for (UtcMs time = midnight - kDay; time < midnight + 2 * kDay; time += kHour / 4) {
      boost::filesystem::create_directories(HourDirectory(files.local[0], time));
    }
    std::vector<std::string> visited = WalkFrom(midnight, midnight + 10 * kHour);
    ASSERT_GE(visited.size(), night.hours.size());
    visited.resize(night.hours.size());
    EXPECT_EQ(visited, night.hours);
    // And over gaps, from an empty tree's skips.
    boost::filesystem::remove_all(files.local[0]);
    const std::string last = HourDirectory(files.local[1], midnight + 9 * kHour);
    boost::filesystem::create_directories(last);
    EXPECT_EQ(WalkFrom(midnight - 40 * kDay, midnight + kDay).size(), 1u);
    boost::filesystem::remove_all(files.local[1]);
  }
}

TEST_F(HourTree, MapsLocalTimesBothWaysInEveryZone) {
  for (const char* name : {"Europe/Berlin", "Asia/Kathmandu", "America/Havana", "Africa/Casablanca",
                           "Australia/Lord_Howe", "Pacific/Apia", "America/Sao_Paulo", "UTC"}) {
    SCOPED_TRACE(name);
    const Zone zone(name);
    for (UtcMs time = 1'230'768'000'000; time < 1'830'768'000'000; time += 41 * 60'000 * 61) {
      const UtcMs start = LocalHourStart(time);
      ASSERT_LE(start, time);
      ASSERT_EQ(HourDirectory("", start), HourDirectory("", time)) << time;
      for (const UtcMs next :
           {NextLocalHour(time), NextLocalDay(time), NextLocalMonth(time), NextLocalYear(time)}) {
        ASSERT_GT(next, time);
        ASSERT_EQ(LocalHourStart(next), next) << time;
      }
      const CalendarTime local = ToLocal(time), again = ToLocal(FromLocal(local));
      ASSERT_EQ(again.hour * 60 + again.minute, local.hour * 60 + local.minute) << time;
    }
  }
}

// Both moments of the hour that comes twice, also where it does so by half; and summer beyond the
// end of 32 bits.
TEST_F(HourTree, TellsBothMeaningsOfAPathInEveryYear) {
  const struct {
    const char* zone;
    const char* path;
    std::int64_t first, last;
  } rows[] = {
      {"America/New_York", "/2031/11/02/01/3000-1.ps", 1'951'363'800, 1'951'367'400},
      {"America/New_York", "/2031/11/02/02/3000-1.ps", 1'951'371'000, 1'951'371'000},
      {"America/New_York", "/2031/03/09/02/", kNoTime, kNoTime},
      {"Australia/Lord_Howe", "/2031/04/06/01/2000-1.ps", 1'933'165'200, 1'933'165'200},
      {"Australia/Lord_Howe", "/2031/04/06/01/4000-1.ps", 1'933'166'400, 1'933'168'200},
      {"Europe/Berlin", "/2040/07/01/14/", 2'224'756'800, 2'224'756'800},
      {"Asia/Kathmandu", "/2040/07/01/14/0500-1.ps", 2'224'743'600, 2'224'743'600},
  };
  for (const auto& row : rows) {
    const Zone zone(row.zone);
    const PathTime expected{row.first, row.last};
    const PathTime told = TimeOfPath(row.path, "/");
    EXPECT_EQ(told, expected) << row.path << ' ' << told.first << ' ' << told.last;
    for (const std::int64_t time : {row.first, row.last}) {
      if (time == kNoTime) continue;
      EXPECT_EQ(HourDirectory("/", time * 1000), std::string(row.path).substr(0, 15));
    }
  }
}

TEST_F(HourTree, SkipsEmptyYearsByOneTestEach) {
  UtcMs time = FromLocal({2014, 3, 5, 7});
  EXPECT_FALSE(files.FindNextHour(time, FromLocal({2024, 3, 5, 7})));
  EXPECT_LE(files.asked, 11);
  EXPECT_FALSE(files.FindNextHour(time, time));
  EXPECT_LE(host.CountLines("dir exists"), 22u);  // two volumes
  tree.MakeDirectory("b/2019/12/31/23");
  time = FromLocal({2014, 3, 5, 7});
  ASSERT_TRUE(files.FindNextHour(time, FromLocal({2024, 3, 5, 7})));
  EXPECT_EQ(time, FromLocal({2019, 12, 31, 23}));
  // From 1901 to the end of 32 bits.
  EXPECT_EQ(WalkFrom(-2'147'483'648'000, 2'147'483'947'000), std::vector<std::string>{"31/23"});
}

TEST_F(HourTree, ListsNamesOverVolumesInTheirOrder) {
  const UtcMs time = 1'750'000'000'000;
  const std::pair<const char*, const char*> laid[] = {
      {"a", "1530-10010100.ps"},  {"a", "5959-10010100.ps"},  {"a", "1530-10010100a.ps"},
      {"a", "junk.ps"},           {"b", "0000-00000000.PS"},  {"b", "1530-10010100.ps"},
      {"b", "1530-10010100.psi"}, {"b", "1530-10010100b.ps"}, {"b", "1530-1001010A.ps"},
      {"b", "0000-00000000a.ps"}};
  for (const auto& [volume, name] : laid) {
    tree.Write(HourDirectory(std::string(volume) + "/", time) + name, "x");
  }
  std::vector<std::string> volumes;
  HourListing listing;
  files.ListHour(time, {}, volumes, listing);
  std::string text;
  for (const ListedFile& file : listing) {
    text += file.name + ":";
    for (const auto volume : file.volumes) text += std::to_string(volume);
    text += " ";
  }
  EXPECT_EQ(text,
            "0000-00000000.PS:1 1530-10010100.ps:01 1530-10010100b.ps:1 1530-1001010A.ps:1 "
            "5959-10010100.ps:0 0000-00000000a.ps:1 1530-10010100a.ps:0 junk.ps:0 ");
}

TEST(RangeTests, FiveMinutesReachBackFromTheStart) {
  const struct {
    std::int64_t file, start, end;
    bool outside;
  } cases[] = {{700, 1000, 2000, false}, {699, 1000, 2000, true},  {1999, 1000, 2000, false},
               {2000, 1000, 2000, true}, {1500, 2000, 1000, true}, {1000, 1000, 1001, false}};
  for (const auto& test : cases) {
    EXPECT_EQ(IsOutsideRange(test.file, test.start, test.end), test.outside) << test.file;
  }
  // Bucket 2 of 100 seconds has been answered: bucket 3 begins at 1300.
  EXPECT_TRUE(IsBucketSkipped(999, 2, 100, 1000, 2000));
  EXPECT_FALSE(IsBucketSkipped(1000, 2, 100, 1000, 2000));
  EXPECT_FALSE(IsBucketSkipped(1, 2, 0, 1000, 2000));
  EXPECT_FALSE(IsBucketSkipped(1, 2, 1000, 1000, 2000));
}

TEST(Buckets, AreTargetsOfTheirTypeOnly) {
  for (const auto& [type, is] :
       {std::pair{"5", true}, {"1", false}, {"50", false}, {"five", false}, {"", false}}) {
    std::string root;
    const qvArchiving::CLocalDiskScanner target({{"Type", type}, {"FullyMountedPath", "/m"}});
    EXPECT_EQ(IsBucket(target, root), is) << type;
    EXPECT_EQ(root, is ? "/m/" : "");
  }
}

TEST_F(HourTree, MakesTheDirectoriesReadableForAllAndWritableForOne) {
  const mode_t before = umask(0);
  (void)MakePath(tree.Path("r/"), 1'750'000'000'000, 0, CreateDirectories::Yes);
  umask(before);
  for (const char* level : {"r", "r/2025", "r/2025/06", "r/2025/06/15", "r/2025/06/15/17"}) {
    EXPECT_EQ(boost::filesystem::status(tree.Path(level)).permissions(), 0755) << level;
  }
}

TEST(FileTimes, AreSecondsOrMinusOne) {
  EXPECT_EQ(SecondsOf({0x32CF, 54'400'999}), 1'750'000'000);  // 2025-06-15
  EXPECT_EQ(SecondsOf({0x32CE, 86'400'000 + 54'400'000}), 1'750'000'000);
  // No date, 29 February 2025, month 13, day 0, and more than two days.
  for (const PackedTime bad : {PackedTime{0, 0}, PackedTime{0x325D, 0}, PackedTime{0x33A1, 0},
                               PackedTime{0x3220, 5}, PackedTime{0x3221, 0xFFFFFFFF}}) {
    EXPECT_EQ(SecondsOf(bad), -1) << bad.date;
  }
}

}  // namespace
}  // namespace qv::kelvo
