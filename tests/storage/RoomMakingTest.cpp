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
  void KeepDays(int days) { GlobalRule(1, days); }
  void KeepInput(int days) {
    storage->SetCameraExpiration(0, 0x00120000, 1, 5, 1, days);
    storage->AddKnownDevice(0x00120000);
  }
  // Recordings of that input, 2000 seconds apart, on the drives by turns.
  void PlantKept(int count) {
    for (int i = 0; i < count; ++i) {
      PlantReal(i % 2 == 0 ? "a/" : "b/", kNow - 200 * kHour + i * 2000, kCamera, 0xFF, 5,
                kNow - kDay);
    }
  }
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
  constexpr qv::kelvo::StreamID kDevice2 = 0x00120200;
  constexpr qv::kelvo::StreamID kForeign = 0x00130100;
  KeepInput(10);
  storage->SetCameraExpiration(0, 0x00120000, 1, 6, 2, 20);
  const std::int64_t old = kNow - 30 * kDay;
  struct Case {
    const char* what;
    std::string path;
    bool free, freeWithGlobalRule;
  };
  const Case cases[] = {
      {"no head", Plant("a/", old, kCamera), true, false},
      {"kept input, young", PlantReal("a/", old, kCamera + 1, 0xFF, 5, kNow - 10 * kDay + 1), false,
       false},
      {"kept input, old", PlantReal("a/", old, kCamera + 2, 0xFF, 5, kNow - 10 * kDay), true,
       false},
      {"expiring input, young", PlantReal("a/", old, kCamera + 3, 0x80, 6, kNow - 20 * kDay + 1),
       false, false},
      {"input without a rule", PlantReal("a/", old, kCamera + 4, 0xFF, 7, kNow), true, false},
      {"no frames", PlantReal("a/", old, kCamera + 5, 0xFF, 5, 0), true, false},
      {"own input in the head", PlantReal("a/", old, kCamera + 6, 0x05, 5, kNow), true, false},
      {"encoder's name", PlantReal("a/", old, kCamera + 0x80, 0xFF, 5, kNow), true, false},
      {"device without a rule", PlantReal("a/", old, kDevice2, 0xFF, 5, kNow), true, false},
      {"unknown provider", PlantReal("a/", old, kForeign, 0xFF, 5, kNow), true, false},
      {"too old for the global rule", Plant("a/", kNow - 40 * kDay), true, true},
  };
  WriteFile("a/2025/05/01/00/0000-odd.ps");
  const auto free = [&](const std::string& path) {
    const bool exists = Exists(path);
    const auto removed = storage->RemoveFile(path, false);
    if (removed && exists) WriteFile(path);  // its content has been judged
    return removed;
  };
  KeepDays(40);
  for (const Case& row : cases) EXPECT_EQ(free(row.path), row.freeWithGlobalRule) << row.what;
  EXPECT_TRUE(free("a/2025/05/01/00/0000-odd.ps")) << "no rule knows a name like that";
  GlobalRule(0, 0);
  for (const Case& row : cases) EXPECT_EQ(free(row.path), row.free) << row.what;

  // A bookmark goes before all; its edges are seconds sharp.
  const std::string marked = Plant("a/", old, kCamera + 9);
  const std::int64_t starts[] = {old + 301, old + 300, old - 119, old - 120};
  const std::int64_t ends[] = {old + 400, old + 400, old - 119, old - 120};
  const bool expected[] = {true, false, false, true};
  for (int i = 0; i < 4; ++i) {
    ApplyCases("<Case ID='c'>" + Bookmark("b", starts[i], ends[i]) + "</Case>");
    EXPECT_EQ(free(marked), expected[i]) << i;
  }
}

TEST_F(RoomMaking, TakesTheOldestOfAllVolumesAndMeasuresItsDriveOnly) {
  const std::string first = Plant("b/", kNow - 5 * kDay);
  const std::string second = Plant("a/", kNow - 5 * kDay + 1);
  const std::string third = Plant("a/", kNow - 4 * kDay);
  const std::string left = Plant("b/", kNow - 3 * kDay);
  WriteFile("a/2025/06/01/00/6000-00120100.ps");
  WriteFile("a/2025/06/01/00/no.ps");
  boost::filesystem::create_directories("a/2025/06/01/01/0000-00120100.ps");
  drives.Fill();
  EXPECT_EQ(MakeRoom(2), "a/");
  EXPECT_FALSE(Exists(first) || Exists(second) || Exists(third));
  EXPECT_TRUE(Exists(left));
  EXPECT_FALSE(Exists("b/" + first.substr(2, 10))) << "emptied directories go, too";
  EXPECT_TRUE(Exists("a/2025/06/01/00/6000-00120100.ps"));
}

TEST_F(RoomMaking, ReadsNoDirectoryWithRoomOrForEachFrameOfAnEmptyTree) {
  drives.capacityGB["a/"] = 10;
  directories.lists = 0;
  EXPECT_EQ(MakeRoom(9), "a/");
  EXPECT_EQ(directories.lists, 0);
  drives.capacityGB["a/"] = 1;
  WriteFile("a/not/of/the/tree.ps");
  EXPECT_EQ(MakeRoom(), "");
  directories.lists = 0;
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(directories.lists, 0);
  const std::string planted = Plant("a/", kNow - kDay);
  drives.Fill();
  clock.Advance(6000);
  EXPECT_EQ(MakeRoom(), "a/");
  EXPECT_FALSE(Exists(planted));
}

TEST_F(RoomMaking, NothingGoesForMoreThanTheLargestDriveHolds) {
  for (int i = 1; i <= 6; ++i) Plant(i % 3 == 0 ? "b/" : "a/", kNow - i * kDay);
  drives.Fill();
  EXPECT_EQ(MakeRoom(5), "");
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1u);
  manager.reserved = 1;
  EXPECT_EQ(storage->GetVolumeToReserve(&manager, 4), "") << "a part is reserved for others";
  EXPECT_EQ(drives.count("a/") + drives.count("b/"), 6u);
  EXPECT_EQ(storage->GetVolumeToReserve(&manager, 3), "a/");
  EXPECT_EQ(CountEvents("Healthy"), 1u);
}

TEST_F(RoomMaking, NotPossibleIsToldOnceAndEnds) {
  KeepDays(30);
  const std::string kept = Plant("a/", kNow - kDay);
  drives.Fill();
  host.ForgetTraffic();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(host.Events().size(), 1u);
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1u);
  EXPECT_EQ(host.CountLines(0, "GRV skipped 1 protected files and 0 rm failures"), 1u);
  drives.capacityGB["b/"] = 1;
  EXPECT_EQ(MakeRoom(), "b/");
  EXPECT_EQ(MakeRoom(), "b/");
  EXPECT_EQ(host.Events().size(), 2u);
  EXPECT_EQ(CountEvents("Healthy"), 1u);
  drives.capacityGB["b/"] = 0;
  clock.Advance(29 * kDay * 1000);
  EXPECT_EQ(MakeRoom(), "a/") << "the rule has run out";
  EXPECT_FALSE(Exists(kept));
}

TEST_F(RoomMaking, RemembersWhatItSawOfAProtectedTree) {
  KeepInput(100);
  for (int i = 1; i <= 20; ++i) {
    PlantReal(i % 2 == 0 ? "a/" : "b/", kNow - i * 7 * kHour, kCamera, 0xFF, 5,
              kNow - i * 7 * kHour);
  }
  drives.Fill();
  directories.stampsKnown = true;
  const auto opens = [&] { return files.Calls(qv::kelvo::FileCall::Open); };
  EXPECT_EQ(MakeRoom(), "");
  const std::size_t heads = opens();
  directories.lists = 0;
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(directories.lists, 0) << "nothing can have changed yet";
  EXPECT_EQ(opens(), heads);

  // The next look costs no listing of an hour, and a rule that changes costs no head.
  std::vector<std::string> hours;
  directories.onList = [&](const std::string& path) {
    if (path.size() > std::string("a/2025/06/15/").size()) hours.push_back(path);
  };
  clock.Advance(6000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(hours.size(), 0u);
  KeepInput(99);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(hours.size(), 20u);
  EXPECT_EQ(opens(), heads);

  // A directory that changed is looked at again.
  const std::string added = Plant("a/", kNow - 14 * kHour + 1);
  ++directories.changes[qv::kelvo::HourDirectory("a/", (kNow - 14 * kHour) * 1000)];
  clock.Advance(6000);
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "a/");
  EXPECT_FALSE(Exists(added));
}

TEST_F(RoomMaking, BusyMachineRefusesNobody) {
  KeepInput(100);
  PlantKept(2);
  const std::string free = Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  directories.onList = [this](const std::string&) { clock.Advance(1000); };
  EXPECT_EQ(MakeRoom(), "b/");
  EXPECT_FALSE(Exists(free));
}

TEST_F(RoomMaking, LongSearchGoesOnInLaterCallsAndIsExactInTheEnd) {
  KeepInput(100);
  PlantKept(40);
  const std::string free = Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  host.ForgetTraffic();
  SlowDown();
  const auto opens = [&] { return files.Calls(qv::kelvo::FileCall::Open); };
  int calls = 0;
  for (; Exists(free) && calls < 100; ++calls) {
    const std::int64_t begin = clock.NowMs();
    const std::string volume = MakeRoom();
    EXPECT_EQ(volume, Exists(free) ? "" : "b/");
    EXPECT_LE(clock.NowMs() - begin, 100);
    // At once again: the worker has its frames to handle first.
    const auto heads = opens();
    if (Exists(free)) {
      EXPECT_EQ(MakeRoom(), "");
    }
    EXPECT_EQ(opens(), heads);
    clock.Advance(20);
  }
  EXPECT_FALSE(Exists(free));
  EXPECT_GE(calls, 5);
  EXPECT_TRUE(host.Events().empty()) << "nothing was known to be impossible";

  // What was passed over becomes free on the way: it isn't missed.
  const auto oldest = qv::kelvo::MakePath("a/", (kNow - 200 * kHour) * 1000, kCamera,
                                          qv::kelvo::CreateDirectories::No);
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
  const std::int64_t time = kNow - 2 * kHour;
  const std::string free = Plant("b/", time);
  drives.Fill();
  host.ForgetTraffic();
  SlowDown();
  const std::string told = "<Storage Time=\"" + std::to_string(time) + '"';
  std::size_t reports = 0;
  for (; CountEvents(told) == 0 && reports < 50; ++reports) {
    const std::int64_t begin = clock.NowMs();
    storage->ReportStatus(true);
    EXPECT_LE(clock.NowMs() - begin, 100);
  }
  EXPECT_GE(reports, 3u);
  EXPECT_EQ(CountEvents("<Storage Time=\"-1\""), reports - 1);

  KeepInput(101);
  EXPECT_EQ(storage->GetVolumeToReserve(&manager, 1), "b/");
  EXPECT_FALSE(Exists(free));
}

TEST_F(RoomMaking, PassesOverWhatIsBeingWrittenOrCannotBeRemoved) {
  const std::string open = Plant("a/", kNow - 60);
  drives.Fill();
  manager.open = open;
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_TRUE(Exists(open));

  // A companion that can't be removed makes a failure; the media file comes back in its place.
  const std::string stuck = Plant("a/", kNow - kDay);
  std::string companion = stuck;
  companion.replace(companion.size() - 2, 2, "psm");
  WriteFile(companion + "/in the way");
  clock.Advance(5000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(host.CountLines(0, "GRV failed to rm " + stuck), 1u);
  boost::filesystem::remove_all(companion);
  WriteFile(stuck);
  drives.Fill();
  clock.Advance(19 * 60'000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_TRUE(Exists(stuck));
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
  drives.error = "gone";
  storage->ReportStatus(true);
  EXPECT_EQ(CountEvents("Get disk space error"), 1u);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(drives.count("a/"), 1u);
  // It comes back with the next full report.
  drives.error.clear();
  EXPECT_EQ(MakeRoom(), "");
  storage->ReportStatus(true);
  EXPECT_EQ(MakeRoom(), "a/");
}

}  // namespace
}  // namespace qvsvr::kelvo
