#include <future>
#include <thread>

#include "storage/Cleanup.h"
#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class Sweep : public RecordingForest {
 protected:
  Sweep() {
    AddDrives(1000);
    Open();
    host.ForgetTraffic();
  }
  void Camera(int type, int days) {
    storage->Retention().SetCameraExpiration(kCamera + 5, type, days);
  }
  void Mark(std::int64_t start, std::int64_t end) {
    ApplyCases("<Case ID='c'>" + Bookmark("one", start, end) + Bookmark("two", start, end) +
               "</Case><Case ID='b'><Bookmark ID='none' Start='1' End='2'/></Case>");
  }
  // One whole pass.
  void Run() {
    host.ForgetTraffic();
    EXPECT_FALSE(storage->KickSweeper(false));
    ASSERT_TRUE(host.WaitForLine("fs-cleanup - elapsed"));
    storage->KickSweeper(true);
  }
  // A recording big enough for cleanup, `days` old by name and head.
  std::string Aged(double days, std::uint8_t input = 5) {
    const auto time = kNow - static_cast<std::int64_t>(days * static_cast<double>(kDay));
    return PlantReal("a/", time, kCamera + input, 0xFF, input, time);
  }
};

TEST_F(Sweep, ExpiresByTheGlobalRuleOrByThoseOfTheInputs) {
  struct Case {
    const char* what;
    int globalType, globalDays, cameraType, cameraDays;
    bool day3, day8, day31, foreign31;  // which recordings stay
  };
  const Case cases[] = {
      {"no rule", 0, 0, 0, 0, true, true, true, true},
      {"global keep", 1, 2, 0, 0, true, true, true, true},
      {"global", 2, 7, 0, 0, true, false, false, false},
      {"input", 0, 0, 2, 7, true, false, false, true},
      {"input keeps", 0, 0, 1, 2, true, true, true, true},
      {"input's longer rule sets the walk", 2, 7, 2, 30, true, true, false, false},
      {"global rule decides", 2, 30, 2, 7, true, true, false, false},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.what);
    boost::filesystem::remove_all("a/2025");
    const std::string day3 = Aged(3), day8 = Aged(8), day31 = Aged(31), foreign = Aged(31.5, 6);
    GlobalRule(row.globalType, row.globalDays);
    storage->ForgetDevice(0x00120000);
    if (row.cameraType != 0) Camera(row.cameraType, row.cameraDays);
    Run();
    EXPECT_EQ(Exists(day3), row.day3);
    EXPECT_EQ(Exists(day8), row.day8);
    EXPECT_EQ(Exists(day31), row.day31);
    EXPECT_EQ(Exists(foreign), row.foreign31);
    const std::size_t rules = row.globalType == 2 || row.cameraType == 2;
    const int gone = 4 - row.day3 - row.day8 - row.day31 - row.foreign31;
    EXPECT_EQ(host.CountLines(25, "(files:4/expired:" + std::to_string(gone) + ")"), rules);
  }
}

TEST_F(Sweep, HeadsDecideForInputs) {
  Camera(2, 7);
  const std::int64_t old = kNow - 8 * kDay;
  const std::string empty = PlantReal("a/", old, kCamera + 5, 0xFF, 5, 0);
  const std::string grown = PlantReal("a/", old, kCamera + 6, 0xFF, 5, kNow - 7 * kDay + 1);
  const std::string encoder = PlantReal("a/", old, kCamera + 0x81, 0x81, 5, old);
  const std::string single = PlantReal("a/", old, kCamera + 7, 0x05, 5, old);
  WriteFile("b/2025/06/01/00/0000-odd.ps", 3000);
  Run();
  EXPECT_EQ(host.CountLines(0, "Sweeper - expiring " + empty), 1u);
  EXPECT_TRUE(Exists(grown) && Exists(encoder) && Exists(single));
  EXPECT_FALSE(Exists("b/2025"));
}

TEST_F(Sweep, MeasuresBookmarksAndKeepsTheirFootage) {
  const std::int64_t begin = kNow - 20 * kDay;
  Mark(begin, begin + 600);
  GlobalRule(2, 7);
  std::map<std::string, bool> stays;
  for (const std::int64_t offset : {-301, -300, 719, 720}) {
    const std::string path = Plant("a/", begin + offset);
    WriteFile(path, 3000);
    WriteFile(path + "i", 500);
    stays[path] = offset >= -300 && offset < 720;
  }
  Run();
  for (const auto& [path, wanted] : stays) EXPECT_EQ(Exists(path), wanted) << path;
  EXPECT_EQ(host.CountLines(25, "(files:4/expired:2)[bookmarked:2/size:8]."), 1u);
  ASSERT_EQ(host.Events().size(), 1u);
  EXPECT_EQ(host.Events()[0].eventClass, 4u);
  EXPECT_EQ(host.Events()[0].text,
            R"(<?xml ?><qDVR><Cases ID="327680"><Case ID="b"><Bookmark ID="none" SizeKB="0" />)"
            R"(</Case><Case ID="c"><Bookmark ID="one" SizeKB="8" />)"
            R"(<Bookmark ID="two" SizeKB="8" /></Case></Cases></qDVR>)");
}

TEST_F(Sweep, HourThatComesTwiceIsMeasuredOnce) {
  const std::int64_t night = 1'729'987'200;  // 2024-10-27, the first 02:00 local time
  Plant("a/", night - kDay);
  WriteFile(Plant("a/", night + 90 * 60), 3000);
  Mark(night, night + 3 * kHour);
  GlobalRule(2, std::numeric_limits<int>::max());  // a time long before the calendar
  Run();
  EXPECT_EQ(host.CountLines(25, "(files:2/expired:0)[bookmarked:1/size:3]."), 1u);
  // What is still being written has the size that it tells itself.
  directories.sizesAreOld = true;
  WriteFile(Plant("a/", kNow - 600), 5000);
  Mark(kNow - 700, kNow);
  Run();
  EXPECT_EQ(host.CountLines(25, "[bookmarked:1/size:5]."), 1u);
}

TEST_F(Sweep, OnePassRunsAtATimeAndForgettingADeviceWaitsForItsEnd) {
  GlobalRule(2, 7);
  for (int i = 0; i < 3; ++i) Plant("a/", kNow - (20 - i) * kDay);
  // Holds the pass in its first hour until the worker is about to stop it.
  std::promise<void> inside, leave;
  directories.onList = [&, entered = false](const std::string& path) mutable {
    if (entered || path.size() < std::string("a/2025/05/26/17/").size()) return;
    entered = true;
    inside.set_value();
    leave.get_future().wait();
  };
  EXPECT_FALSE(storage->KickSweeper(false));
  inside.get_future().wait();
  EXPECT_TRUE(storage->KickSweeper(false)) << "it runs still";
  std::thread helper([&] { leave.set_value(); });
  storage->ForgetDevice(0x00120000);
  helper.join();
  EXPECT_FALSE(storage->KickSweeper(true)) << "nothing runs any more";
  EXPECT_EQ(host.CountLines("Sweeper - interrupted.") + host.CountLines("Sweeper - completed"), 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
