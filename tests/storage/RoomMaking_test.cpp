// Making room on real trees: what protects a recording, what is passed over, what is remembered.
#include <algorithm>

#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class RoomMaking : public RecordingForest {
 protected:
  RoomMaking() {
    AddDrives(0);
    Open();
    host.ForgetTraffic();
  }
  void KeepInput(int days) {
    storage->Retention().SetCameraExpiration(kCamera + 5, 1, days);
    storage->Retention().AddKnownDevice(0x00120000);
  }
  // Recordings of that input, 2000 seconds apart, on the drives by turns; the first one's path.
  std::string PlantKept(int count) {
    std::string first;
    for (int i = count; i-- > 0;) {
      first = PlantReal(i % 2 == 0 ? "a/" : "b/", kNow - 200 * kHour + i * 2000, kCamera, 0xFF, 5,
                        kNow - kDay);
    }
    return first;
  }
  [[nodiscard]] std::size_t Opens() const { return files.Calls(qv::kelvo::FileCall::Open); }
  // From now on each head takes 20 ms to read.
  void SlowDown() {
    files.before = [this](qv::kelvo::FileCall call, const std::string& path) {
      if (call == qv::kelvo::FileCall::Open && path.ends_with(".ps")) clock.Advance(20);
    };
  }
  std::string MakeRoom(std::int64_t gigabytes = 1) {
    return storage->GetRecordVolume(&manager, gigabytes);
  }
};

TEST_F(RoomMaking, JudgesByBookmarkThenGlobalRuleThenRuleOfTheInput) {
  KeepInput(10);
  storage->Retention().SetCameraExpiration(kCamera + 6, 2, 20);
  const std::int64_t old = kNow - 30 * kDay;
  struct Case {
    const char* what;
    std::string path;
    bool free, freeWithGlobalRule;
  };
  const Case cases[] = {
      {"no head", Plant("a/", old, kCamera), true, false},
      {"kept, young", PlantReal("a/", old, kCamera + 1, 0xFF, 5, kNow - 10 * kDay + 1), false,
       false},
      {"kept, old", PlantReal("a/", old, kCamera + 2, 0xFF, 5, kNow - 10 * kDay), true, false},
      {"expiring", PlantReal("a/", old, kCamera + 3, 0x80, 6, kNow - 20 * kDay + 1), false, false},
      {"input without a rule", PlantReal("a/", old, kCamera + 4, 0xFF, 7, kNow), true, false},
      {"no frames", PlantReal("a/", old, kCamera + 5, 0xFF, 5, 0), true, false},
      {"own input in the head", PlantReal("a/", old, kCamera + 6, 0x05, 5, kNow), true, false},
      {"encoder's name", PlantReal("a/", old, kCamera + 0x80, 0xFF, 5, kNow), true, false},
      {"device without a rule", PlantReal("a/", old, 0x00120200, 0xFF, 5, kNow), true, false},
      {"too old for the global rule", Plant("a/", kNow - 40 * kDay), true, true},
  };
  WriteFile("a/2025/05/01/00/0000-odd.ps");
  const auto free = [&](const std::string& path) {
    const bool exists = Exists(path);
    const auto removed = storage->RemoveFile(path, false);
    if (removed && exists) WriteFile(path);  // its content has been judged
    return removed;
  };
  GlobalRule(1, 40);
  for (const Case& row : cases) EXPECT_EQ(free(row.path), row.freeWithGlobalRule) << row.what;
  EXPECT_TRUE(free("a/2025/05/01/00/0000-odd.ps")) << "no rule knows a name like that";
  GlobalRule(0, 0);
  for (const Case& row : cases) EXPECT_EQ(free(row.path), row.free) << row.what;

  // A bookmark goes before all; its edges are seconds sharp.
  const std::string marked = Plant("a/", old, kCamera + 9);
  const std::pair<std::int64_t, bool> offsets[] = {
      {301, true}, {300, false}, {-119, false}, {-120, true}};
  for (const auto& [offset, isFree] : offsets) {
    ApplyCases("<Case ID='c'>" + Bookmark("b", old + offset, old + offset) + "</Case>");
    EXPECT_EQ(free(marked), isFree) << offset;
  }
}

TEST_F(RoomMaking, PassesOverOddNamesAndTakesEmptiedDirectories) {
  // An empty tree isn't read for each frame.
  WriteFile("a/not/of/the/tree.ps");
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "");
  directories.lists = 0;
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(directories.lists, 0);
  clock.Advance(6000);
  Plant("b/", kNow - 5 * kDay);
  WriteFile("a/2025/06/01/00/6000-00120100.ps");
  WriteFile("a/2025/06/01/00/no.ps");
  boost::filesystem::create_directories("a/2025/06/01/01/0000-00120100.ps");
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "b/");
  EXPECT_FALSE(Exists("b/2025"));
  EXPECT_TRUE(Exists("a/2025/06/01/01/0000-00120100.ps"));
  EXPECT_EQ(drives.count("a/"), 3u);
}

TEST_F(RoomMaking, AllThatMayGoGoesForMoreThanAnyDriveHolds) {
  for (int i = 1; i <= 6; ++i) Plant(i % 3 == 0 ? "b/" : "a/", kNow - i * kDay);
  drives.Fill();
  EXPECT_EQ(MakeRoom(3), "a/");
  EXPECT_EQ(drives.count("a/") + drives.count("b/"), 1u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(storage->GetVolumeToReserve(&manager, 5), "");
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1u);
  EXPECT_EQ(drives.count("a/") + drives.count("b/"), 0u);
  EXPECT_EQ(MakeRoom(4), "a/");
  EXPECT_EQ(CountEvents("Healthy"), 1u);
}

TEST_F(RoomMaking, RemembersWhatItSawOfAProtectedTree) {
  KeepInput(100);
  for (int i = 1; i <= 20; ++i) {
    PlantReal(i % 2 == 0 ? "a/" : "b/", kNow - i * 7 * kHour, kCamera, 0xFF, 5, kNow - kDay);
  }
  drives.capacityGB["b/"] = 11;
  EXPECT_EQ(MakeRoom(), "b/");
  EXPECT_EQ(directories.lists, 0) << "there is room";
  drives.Fill();
  directories.stampsKnown = true;
  EXPECT_EQ(MakeRoom(), "");
  const std::size_t heads = Opens();
  directories.lists = 0;
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(directories.lists, 0) << "nothing can have changed yet";

  // The next look costs no listing of an hour, and a rule that changes costs no head.
  int hours = 0;
  directories.onList = [&](const std::string& path) {
    hours += path.size() > std::string("a/2025/06/15/").size();
  };
  clock.Advance(6000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(hours, 0);
  KeepInput(99);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(hours, 20);
  EXPECT_EQ(Opens(), heads);

  // A directory that changed is looked at again.
  Plant("a/", kNow - 14 * kHour + 1);
  ++directories.changes[qv::kelvo::HourDirectory("a/", (kNow - 14 * kHour) * 1000)];
  clock.Advance(6000);
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "a/");
}

TEST_F(RoomMaking, BusyMachineRefusesNobody) {
  KeepInput(100);
  PlantKept(2);
  Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  directories.onList = [this](const std::string&) { clock.Advance(1000); };
  EXPECT_EQ(MakeRoom(), "b/");
}

TEST_F(RoomMaking, LongSearchGoesOnInLaterCallsAndIsExactInTheEnd) {
  KeepInput(100);
  const std::string oldest = PlantKept(40);
  const std::string free = Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  host.ForgetTraffic();
  SlowDown();
  int calls = 0;
  for (; Exists(free) && calls < 100; ++calls) {
    const std::int64_t begin = clock.NowMs();
    const std::string volume = MakeRoom();
    EXPECT_EQ(volume, Exists(free) ? "" : "b/");
    EXPECT_LE(clock.NowMs() - begin, 100);
    // At once again: the worker has its frames to handle first.
    const auto heads = Opens();
    if (Exists(free)) {
      EXPECT_EQ(MakeRoom(), "");
    }
    EXPECT_EQ(Opens(), heads);
    clock.Advance(20);
  }
  EXPECT_GE(calls, 5);
  EXPECT_TRUE(host.Events().empty()) << "nothing was known to be impossible";

  // What was passed over becomes free on the way: it isn't missed.
  directories.onList = [this](const std::string&) { clock.Advance(20); };
  drives.Fill();
  clock.Advance(6000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_TRUE(host.Events().empty());
  KeepInput(1);
  std::string volume;
  for (int i = 0; i < 5 && volume.empty(); ++i, clock.Advance(20)) volume = MakeRoom();
  EXPECT_EQ(volume, "a/");
  EXPECT_FALSE(Exists(oldest));

  // Without anything to find that is told as soon as it is known, and once.
  KeepInput(100);
  drives.Fill();
  for (int i = 0; i < 50; ++i, clock.Advance(20)) EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1u);
}

TEST_F(RoomMaking, LongSearchDelaysNoReportAndIsFinishedForAReservation) {
  KeepInput(100);
  PlantKept(20);
  Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  host.ForgetTraffic();
  SlowDown();
  // The drives' states are told at once, the oldest when it is known.
  storage->ReportStatus(true);
  EXPECT_EQ(CountEvents("<Storage ID=\"327680\"><Drive "), 1u);
  int steps = 0;
  for (; CountEvents("<Storage Time=") == 0 && steps < 50; ++steps) {
    clock.Advance(20);
    const std::int64_t begin = clock.NowMs();
    storage->ContinueReport();
    EXPECT_LE(clock.NowMs() - begin, 100);
  }
  EXPECT_GE(steps, 3);
  EXPECT_EQ(CountEvents("<Storage Time=\"" + std::to_string(kNow - 2 * kHour)), 1u);

  KeepInput(101);
  EXPECT_EQ(storage->GetVolumeToReserve(&manager, 1), "b/");
}

TEST_F(RoomMaking, PassesOverWhatIsBeingWrittenOrCannotBeRemoved) {
  manager.open = Plant("a/", kNow - 60);
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_TRUE(Exists(manager.open));

  // A companion that can't be removed makes a failure; the media file comes back in its place.
  const std::string stuck = Plant("a/", kNow - kDay);
  WriteFile(stuck + "m/in the way");
  clock.Advance(5000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_FALSE(Exists(stuck));
  boost::filesystem::remove_all(stuck + "m");
  WriteFile(stuck);
  drives.Fill();
  clock.Advance(19 * 60'000);
  EXPECT_EQ(MakeRoom(), "");
  clock.Advance(60'000);
  EXPECT_EQ(MakeRoom(), "a/");
  EXPECT_FALSE(Exists(stuck));
}

TEST_F(RoomMaking, StopsBetweenFilesAndSparesFaultyDrives) {
  Plant("a/", kNow - kDay);
  drives.Fill();
  manager.stopping = true;
  EXPECT_EQ(MakeRoom(), "");
  manager.stopping = false;
  drives.faulty = "a/";
  storage->ReportStatus(true);
  EXPECT_EQ(CountEvents("Get disk space error"), 1u);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(drives.count("a/"), 1u);
  // It comes back with the next full report.
  drives.faulty.clear();
  EXPECT_EQ(MakeRoom(), "");
  storage->ReportStatus(true);
  EXPECT_EQ(MakeRoom(), "a/");
}

}  // namespace
}  // namespace qvsvr::kelvo
