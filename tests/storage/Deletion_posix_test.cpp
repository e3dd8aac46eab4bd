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

TEST_F(Deletion, SparesLinksAndTheRootsOfVolumesOfAnyDepth) {
  Start();
  const qv::kelvo::TempTree tree;
  const std::string drive = tree.MakeDirectory("mnt/deep/iscsi1");
  drives.capacityGB[drive] = 0;
  const ParsedXml xml("<Storage ID='3604480'><Disk SupportsPrep='1'><Drives><Drive Name='" +
                      drive.substr(0, drive.size() - 1) + "'/></Drives></Disk></Storage>");
  EXPECT_TRUE(storage->ApplyDiskPrep(xml.Root()));
  EXPECT_EQ(storage->Volumes().ListUsable().front(), drive);

  // A year that lies on another disk, which is empty after the first removal.
  const std::string elsewhere = tree.MakeDirectory("elsewhere");
  fs::create_directory_symlink(elsewhere, "a/2024");
  const std::string linked = "a/2024/05/06/07/0800-00120100.ps";
  WriteFile(linked);
  const std::string deep = Plant(drive, kNow - 9 * kDay), young = PlantBig("b/", kNow - 5 * kDay);
  const std::string marked = PlantBig(drive, kNow - 7 * kDay);
  ApplyCases("<Case ID='c'>" + Bookmark("b", kNow - 7 * kDay, kNow - 7 * kDay) + "</Case>");
  drives.capacityGB["b/"] = 1;
  drives.capacityGB[drive] = 2;
  EXPECT_EQ(MakeRoom(), drive);
  EXPECT_FALSE(Exists(linked) || Exists(deep));
  EXPECT_TRUE(fs::is_symlink("a/2024") && Exists(elsewhere) && Exists(marked) && Exists(young));

  drives.capacityGB[drive] = 1;
  GlobalRule(2, 6);
  WriteFile(drive + "2025/06/01/00/0000-00120100.psi");  // alone
  Sweep();
  EXPECT_TRUE(fs::is_symlink("a/2024") && Exists(marked));
  EXPECT_FALSE(Exists(drive + "2025/06/01"));
  ApplyCases("");
  Sweep();
  EXPECT_FALSE(Exists(marked) || Exists(drive + "2025"));
  EXPECT_TRUE(Exists(drive) && Exists(young));
}

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

TEST_F(Deletion, HeadThatTheSystemRefusesKeepsARecordingForNow) {
  Start();
  KeepInput(10);
  const std::string kept = PlantReal("a/", kNow - 9 * kDay, kCamera, 0xFF, 5, kNow - 9 * kDay);
  const std::string young = PlantReal("b/", kNow - 8 * kDay, kCamera, 0xFF, 5, kNow - 8 * kDay);
  drives.Fill();
  using qv::kelvo::FileCall;
  const struct {
    FileCall call;
    const char* file;
    int error;
  } faults[] = {{FileCall::Open, ".ps", EMFILE},
                {FileCall::Open, ".psi", EMFILE},
                {FileCall::Open, ".ps", EACCES},
                {FileCall::ReadAt, ".ps", EIO},
                {FileCall::ReadAt, ".psi", ENOMEM}};
  for (const auto& fault : faults) {
    files.Set({fault.call, 1, 1000, fault.error, 0, fault.file});
    EXPECT_EQ(MakeRoom(), "") << fault.file << ' ' << fault.error;
    files.ClearFaults();
    clock.Advance(6000);
    EXPECT_EQ(MakeRoom(), "") << "read by now";
    EXPECT_TRUE(Exists(kept) && Exists(young));
    // What is known of the heads is forgotten with the directories.
    Open();
    KeepInput(10);
  }
  // A damaged head protects nothing.
  WriteFile(kept, 100);
  EXPECT_EQ(MakeRoom(), "a/");
  EXPECT_TRUE(!Exists(kept) && Exists(young));
}

TEST_F(Deletion, HourThatIsNoneHidesNothing) {
  Start();
  WriteFile("a/2025/02/30/05/0000-00120100.ps");
  WriteFile("b/2025/03/30/02/0000-00120100.ps");  // that hour was left out
  const std::string older = Plant("a/", kNow - 106 * kDay), young = PlantBig("b/", kNow - kDay);
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "a/");
  EXPECT_FALSE(Exists(older));
  GlobalRule(2, 100);
  const std::string expired = PlantBig("a/", kNow - 106 * kDay);
  Sweep();
  EXPECT_FALSE(Exists(expired));
  EXPECT_TRUE(Exists(young));
}

// A disk that refuses every removal doesn't hold up the worker: one call tries some, the next ones
// the others, and what is to be told is told at the end.
TEST_F(Deletion, OneCallTriesOnlySoMuch) {
  Start();
  struct SlowManager : TestManager {
    explicit SlowManager(qv::kelvo::ManualClock& time) : clock(time) {}
    bool IsBeingWritten(const std::string&) const override {
      clock.Advance(5);
      return false;
    }
    qv::kelvo::ManualClock& clock;
  } slow(clock);
  constexpr int kFiles = 300;
  for (int i = 0; i < kFiles; ++i) WriteFile(Plant("a/", kNow - i * 600 - 600) + "m/in the way");
  drives.count = [](const std::string&) { return 1u; };
  drives.Fill();
  host.ForgetTraffic();
  int calls = 0;
  do {
    EXPECT_EQ(storage->GetRecordVolume(&slow, 1), "");
    EXPECT_EQ(CountEvents("Recording Not Possible"), !storage->StillSearching());
    EXPECT_LE(host.CountLines("GRV rm: "), 30u * static_cast<unsigned>(++calls));
    clock.Advance(20);
  } while (storage->StillSearching() && calls < 100);
  EXPECT_EQ(host.CountLines("GRV rm: "), kFiles);
  EXPECT_EQ(host.CountLines(0, "and 300 rm failures"), 1u);
}

TEST_F(Deletion, EachWalkCountsWhatItPasses) {
  Start();
  KeepInput(100);
  for (int i = 0; i < 3; ++i) PlantReal("a/", kNow - (9 + i) * kDay, kCamera, 0xFF, 5, kNow - kDay);
  for (int i = 0; i < 2; ++i) Plant("a/", kNow - (5 + i) * kDay);
  drives.Fill();
  EXPECT_EQ(MakeRoom(2), "a/");
  EXPECT_EQ(host.CountLines(0, "GRV skipped 6 protected files and 0 rm failures"), 1u);
}

TEST_F(Deletion, DriveThatIsNotMountedAnyMoreHasFailedUntilItIsBack) {
  struct Mounts : ForestDrives {
    int DeviceNumber(const std::string& path, std::uint64_t& device) override {
      device = path == "disks/a/" && mounted ? 2 : 1;
      return 0;
    }
    bool mounted = true;
  } mounts;
  for (const char* name : {"disks/a/", "disks/b/"}) {
    fs::create_directories(name);
    mounts.Add(name);
    mounts.capacityGB[name] = name[6] == 'a' ? 9 : 5;
  }
  qv::kelvo::Platform system{clock,
                             mounts,
                             directories,
                             files,
                             qv::kelvo::SystemPlatform().durableFiles,
                             qv::kelvo::SystemPlatform().diskSync};
  storage = std::make_unique<CFileSystem>(core, system);
  ASSERT_TRUE(storage->LoadStorage());
  EXPECT_EQ(MakeRoom(), "disks/a/");
  mounts.mounted = false;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(MakeRoom(), "disks/b/");
  for (int i = 0; i < 2; ++i) storage->ReportStatus(true);
  EXPECT_EQ(CountEvents("Get disk space error"), 1u);
  EXPECT_EQ(host.CountLines(75, "GDS - disks/a/, "), 1u) << "once for a change of state";
  mounts.mounted = true;
  storage->ReportStatus(true);
  EXPECT_EQ(MakeRoom(), "disks/a/");
}

}  // namespace
}  // namespace qvsvr::kelvo
