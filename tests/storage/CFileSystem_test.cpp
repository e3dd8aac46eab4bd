#include "storage/CFileSystem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <thread>

#include "tests/storage/ParsedXml.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

using Names = std::vector<std::string>;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

struct Manager : IRecordManager {
  std::int64_t ReservedGB(const std::string& volume) const override {
    return volume == reservedVolume ? reserved : 0;
  }
  bool IsStopping() const override { return stopping; }
  std::string reservedVolume;
  std::int64_t reserved = 0;
  bool stopping = false;
};

class Storage : public ::testing::Test {
 protected:
  // A directory below the test's own.
  void AddDrive(const std::string& name, std::uint64_t freeGB) {
    boost::filesystem::create_directories(name);
    bundle.drives.Add(name);
    bundle.drives.SetSpace(name, {1000 * kGiB, (freeGB + 50) * kGiB, freeGB * kGiB + kGiB - 1});
  }
  Names Volumes() {
    Names list;
    storage.GetVolumes(list, qv::kelvo::kVolumesLocal, nullptr);
    return list;
  }
  bool Apply(const std::string& storages) {
    const ParsedXml xml("<qDVR Delta='1'>" + storages + "</qDVR>");
    EXPECT_TRUE(storage.ApplyStorageXml(xml.Root(), drivesGiven, reply));
    return drivesGiven;
  }

  FakeHost host;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  CFileSystem storage{core, bundle.platform};
  Manager manager;
  bool drivesGiven = false;
  TiXmlElement reply{"Storage"};
};

TEST_F(Storage, OpensWithTheFixedDrivesInOrder) {
  EXPECT_FALSE(storage.LoadStorage());
  EXPECT_TRUE(Volumes().empty());
  EXPECT_EQ(storage.GetRecordVolume(&manager, 1), "");

  AddDrive("d/b/", 7);
  AddDrive("d/a/", 5);
  AddDrive("d/c/", 9);
  bundle.drives.ChangeDrive("d/c/", [](auto& drive) { drive.spaceError = "gone"; });
  bundle.drives.Change([](auto& table) { table.systemDirectory = "d/b/os"; });
  EXPECT_TRUE(storage.LoadStorage());
  EXPECT_EQ(Volumes(), (Names{"d/a/", "d/c/"}));
  EXPECT_EQ(storage.ListUsableVolumes(), Volumes());
  EXPECT_EQ(storage.ListRecordableVolumes(), Volumes());
  EXPECT_EQ(host.CountLines(25, "Drive d/a/ total 1000GB free 5GB"), 1u);
  EXPECT_EQ(host.CountLines(75, "GDS - d/c/, gone"), 1u);
  EXPECT_EQ(host.CountLines("Drive d/c/"), 0u);
}

TEST_F(Storage, RecordsWhereMostRoomIsLeft) {
  AddDrive("d/a/", 20);
  AddDrive("d/b/", 21);
  storage.LoadStorage();
  EXPECT_EQ(storage.GetRecordVolume(&manager, 1), "d/b/");
  manager.reservedVolume = "d/b/";
  manager.reserved = 1;
  EXPECT_EQ(storage.GetRecordVolume(&manager, 1), "d/a/") << "a tie goes to the earlier";
  EXPECT_EQ(storage.GetRecordVolume(&manager, 20), "d/a/");
  EXPECT_EQ(storage.GetRecordVolume(&manager, 21), "");
  Apply(R"(<Storage ID="327680"><Drive Name="d/a/" Percent="99"/></Storage>)");
  EXPECT_EQ(storage.GetRecordVolume(&manager, 20), "d/b/");
  Apply(R"(<Storage ID="327680"><Drive Name="d/b/" Enabled="0"/></Storage>)");
  EXPECT_EQ(storage.GetRecordVolume(&manager, 1), "d/a/");
  bundle.drives.ChangeDrive("d/a/", [](auto& drive) { drive.spaceError = "gone"; });
  EXPECT_EQ(storage.GetRecordVolume(&manager, 1), "");
}

TEST_F(Storage, GivesNoVolumeToNobodyAtTheEndOrForNothing) {
  AddDrive("d/a/", 20);
  storage.LoadStorage();
  EXPECT_EQ(storage.GetRecordVolume(nullptr, 1), "");
  EXPECT_EQ(storage.GetRecordVolume(&manager, 0), "");
  EXPECT_EQ(storage.GetRecordVolume(&manager, -5), "");
  manager.stopping = true;
  EXPECT_EQ(storage.GetRecordVolume(&manager, 1), "");
}

TEST_F(Storage, TellsWhetherTheLastElementOfItsOwnNamedADrive) {
  AddDrive("d/a/", 20);
  AddDrive("d/b/", 20);
  storage.LoadStorage();
  const std::string off = R"(<Storage ID="327680"><Drive Name="d/a/" Enabled="0"/></Storage>)";
  const std::string foreign = R"(<Storage ID="1"><Drive Name="d/b/" Enabled="0"/></Storage>)";
  EXPECT_FALSE(Apply(foreign + "<Storage><Drive Name='d/b/' Enabled='0'/></Storage>"));
  EXPECT_EQ(Volumes(), (Names{"d/a/", "d/b/"}));
  EXPECT_TRUE(Apply(off + foreign));
  EXPECT_EQ(Volumes(), Names{"d/b/"});
  EXPECT_FALSE(Apply(off + R"(<Storage ID="327680" TimeLapse="40"/>)"));
  EXPECT_EQ(storage.TimeLapse(), 40);
  EXPECT_FALSE(Apply(R"(<Storage ID="327680" PreserveExpirationAudioWithVideo="1"/>)"));
  EXPECT_TRUE(storage.PreserveExpirationAudioWithVideo());
  EXPECT_EQ(storage.PreserveAudioChanges(), 1u);
}

TEST_F(Storage, SendsRepliesUnderItsOwnId) {
  bundle.clock.SetNow(1'700'000'000'999);
  Apply(R"(<Storage ID="327680"><Drive Name="/gone/"/></Storage>)");
  host.ForgetTraffic();
  storage.SendStorageXml(reply);
  ASSERT_EQ(host.Events().size(), 1u);
  EXPECT_EQ(host.Events()[0].eventClass, 4u);
  EXPECT_EQ(host.Events()[0].text,
            R"(<?xml ?><qDVR><Storage ID="327680"><Drive Name="/gone/" Alarm="1")"
            R"( Time="1700000000" Message="Drive not found" /></Storage></qDVR>)");
}

TEST_F(Storage, PreparedDrivesJoinOnceAndStay) {
  qv::kelvo::TempTree tree;
  const std::string drive = tree.MakeDirectory("new");
  AddDrive(drive, 5);
  const ParsedXml xml("<Storage ID='3604480'><Disk SupportsPrep='1'><Drives><Drive Name='" + drive +
                      "'/></Drives></Disk></Storage>");
  EXPECT_TRUE(storage.ApplyDiskPrep(xml.Root()));
  EXPECT_FALSE(storage.ApplyDiskPrep(xml.Root()));
  EXPECT_EQ(Volumes(), Names{drive});
  EXPECT_EQ(storage.GetRecordVolume(&manager, 5), drive);
  EXPECT_EQ(host.CountLines(25, "Drive " + drive + " discovered via new prep"), 1u);

  // Without a fixed drive at open the root of the new one must survive its emptying all the same.
  tree.Write("new/2024/01/02/03/0405-00110000.ps", "");
  const std::string file = tree.Path("new/2024/01/02/03/0405-00110000.ps");
  EXPECT_TRUE(storage.RemoveFile(file, false));
  EXPECT_TRUE(tree.Files().empty());
  EXPECT_TRUE(boost::filesystem::is_directory(drive));
}

TEST_F(Storage, TimeLapseScheduleIsFoundByItsFourNumbers) {
  Apply(R"(<Storage ID="327680"><Devices ID="1114112"><Device Number="3"><Context Number="2">
      <Video><Input Number="5"><Schedule><Entry FirstHour="0" LastHour="9" TimeLapse="7"/></Schedule>
      </Input></Video></Context></Device></Devices></Storage>)");
  Schedule list{{1, 2, 3}};
  EXPECT_FALSE(storage.GetTimeLapseSchedule(0, 1114112, 3, 5, list));
  EXPECT_EQ(list, (Schedule{{1, 2, 3}}));
  EXPECT_TRUE(storage.GetTimeLapseSchedule(2, 1114112, 3, 5, list));
  EXPECT_EQ(list, (Schedule{{0, 9, 7}}));
}

// The thread sanitizer looks on: host threads list volumes while the worker changes them.
TEST_F(Storage, VolumesCanBeListedWhileTheyChange) {
  AddDrive("d/a/", 20);
  AddDrive("d/b/", 20);
  storage.LoadStorage();
  std::atomic<bool> done{false};
  std::atomic<int> looks{0};
  std::thread reader([&] {
    while (!done) {
      const Names now = Volumes();
      EXPECT_TRUE(now == Names{"d/a/"} || now == (Names{"d/a/", "d/b/"}));
      qv::kelvo::TargetList targets;
      storage.GetTargets(targets, qv::kelvo::kVolumesArchive, nullptr);
      ++looks;
    }
  });
  for (int i = 0; i < 200 || looks < 200; ++i) {
    Apply("<Storage ID='327680'><Drive Name='d/b/' Enabled='" + std::to_string(i % 2) +
          "'/></Storage>");
  }
  done = true;
  reader.join();
}

}  // namespace
}  // namespace qvsvr::kelvo
