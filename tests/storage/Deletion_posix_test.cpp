// What a deletion must never take, whatever the tree, the clock and the disks are like.
#include <cerrno>

#include "storage/Cleanup.h"
#include "tests/storage/RecordingForest.h"
#include "tests/support/Zone.h"

namespace qvsvr::kelvo {
namespace {

namespace fs = boost::filesystem;

class Deletion : public RecordingForest {
 protected:
  void Start() {
    AddDrives(0);
    Open();
    host.ForgetTraffic();
  }
  std::string MakeRoom(std::int64_t gigabytes = 1) {
    return storage->GetRecordVolume(&manager, gigabytes);
  }
  void KeepInput(int days) {
    storage->Retention().SetCameraExpiration(kCamera + 5, 1, days);
    storage->Retention().AddKnownDevice(0x00120000);
  }
  // Too big for debris.
  static std::string PlantBig(const std::string& drive, std::int64_t time) {
    std::string path = Plant(drive, time);
    WriteFile(path, 3000);
    return path;
  }
  void Sweep() {
    host.ForgetTraffic();
    EXPECT_FALSE(storage->KickSweeper(false));
    ASSERT_TRUE(host.WaitForLine("fs-cleanup - elapsed"));
    storage->KickSweeper(true);
  }
};

TEST_F(Deletion, BothMeaningsOfTheHourThatComesTwiceAreProtected) {
  Start();
  struct Night {
    const char* zone;
    std::int64_t second;  // a moment of the hour's second time
    std::int64_t apart;
  };
  for (const Night& night : {Night{"America/New_York", 1'730'615'400, kHour},  // 2024-11-03 01:30
                             Night{"Australia/Lord_Howe", 1'712'415'600, kHour / 2}}) {
    const qv::kelvo::Zone zone(night.zone);
    const std::int64_t first = night.second - night.apart;
    const std::string firstPath =
        qv::kelvo::MakePath("a/", first * 1000, kCamera, qv::kelvo::CreateDirectories::No);
    const std::string path = PlantBig("a/", night.second);
    ASSERT_EQ(path, firstPath) << night.zone;
    for (const std::int64_t time : {first, night.second}) {
      ApplyCases("<Case ID='c'>" + Bookmark("b", time, time) + "</Case>");
      EXPECT_FALSE(storage->RemoveFile(path, false)) << night.zone << ' ' << time;
      GlobalRule(2, 7);
      Sweep();
      EXPECT_TRUE(Exists(path));
    }
    ApplyCases("");
    clock.SetNow((first + 10 * kDay + night.apart / 2) * 1000);
    GlobalRule(1, 10);
    EXPECT_FALSE(storage->RemoveFile(path, false)) << "kept by its second meaning";
    GlobalRule(2, 10);
    Sweep();
    EXPECT_TRUE(Exists(path)) << "not yet expired by its second meaning";
    clock.Advance(night.apart * 1000);
    Sweep();
    EXPECT_FALSE(Exists(path));
    clock.SetNow(kNow * 1000);
  }
}

TEST_F(Deletion, CleanupKnowsTheCurrentHourInEveryYearAndZone) {
  const std::pair<const char*, std::int64_t> times[] = {
      {"Europe/Berlin", 2'224'756'800},  // 2040-07-01 12:00 UTC
      {"Asia/Kathmandu", 2'224'756'800},
      {"America/St_Johns", 2'224'756'800},
      {"America/New_York", 1'730'610'000},  // 2024-11-03, as the hour that comes twice begins
  };
  for (const auto& [name, begin] : times) {
    const qv::kelvo::Zone zone(name);
    for (std::int64_t now = begin + 400; now < begin + 2 * kHour; now += 1234) {
      clock.SetNow(now * 1000);
      const std::int64_t hour = qv::kelvo::LocalHourStart(now * 1000) / 1000;
      const std::string path = Plant("a/", std::min(hour + 30, now));
      const std::atomic<bool> stop{false};
      FsCleanup(platform, {"a/"}, stop, true);
      EXPECT_TRUE(Exists(path)) << name << ' ' << now;
      clock.Advance(3 * kHour * 1000);
      FsCleanup(platform, {"a/"}, stop, true);
      EXPECT_FALSE(Exists(path.substr(0, 6))) << name << ' ' << now;
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
