#include "tests/storage/RecordingForest.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

using Names = std::vector<std::string>;

class Storage : public RecordingForest {
 protected:
  // Drives a/, b/ and so on of 1000 GB.
  void OpenWith(const std::vector<std::uint64_t>& freeGB) {
    for (std::size_t i = 0; i < freeGB.size(); ++i) {
      const std::string name{static_cast<char>('a' + i), '/'};
      boost::filesystem::create_directories(name);
      drives.names.push_back(name);
      drives.capacityGB[name] = 1000;
      used[name] = 1000 - freeGB[i];
    }
    drives.count = [this](const std::string& name) { return used[name]; };
    Open();
  }
  Names Volumes() {
    Names list;
    storage->GetVolumes(list, qv::kelvo::kVolumesLocal, nullptr);
    return list;
  }
  std::string Choose(std::int64_t gigabytes) {
    return storage->GetRecordVolume(&manager, gigabytes);
  }
  std::map<std::string, std::uint64_t> used;
};

TEST_F(Storage, OpensWithTheFixedDrivesInOrder) {
  storage = std::make_unique<CFileSystem>(core, platform);
  EXPECT_FALSE(storage->LoadStorage());
  EXPECT_TRUE(Volumes().empty());
  EXPECT_EQ(Choose(1), "");

  drives.system = "b/os";
  drives.faulty = "c/";
  drives.error = "gone";
  OpenWith({5, 7, 9});
  EXPECT_EQ(Volumes(), (Names{"a/", "c/"}));
  storage->ReportStatus(true);
  EXPECT_EQ(storage->ListRecordableVolumes(), Names{"a/"});
  EXPECT_EQ(host.CountLines(25, "Drive a/ total 1000GB free 5GB"), 1u);
  EXPECT_EQ(host.CountLines(75, "GDS - c/, gone"), 2u);
  EXPECT_EQ(host.CountLines("Drive c/"), 0u);
}

TEST_F(Storage, RecordsWhereMostRoomIsLeft) {
  OpenWith({20, 21});
  EXPECT_EQ(Choose(1), "b/");
  manager.reservedOn = "b/";
  manager.reserved = 1;
  EXPECT_EQ(Choose(1), "a/") << "a tie goes to the earlier";
  EXPECT_EQ(Choose(20), "a/");
  EXPECT_EQ(Choose(21), "");
  Apply(R"(<Storage ID="327680"><Drive Name="a/" Percent="99"/></Storage>)");
  EXPECT_EQ(Choose(20), "b/");
  Apply(R"(<Storage ID="327680"><Drive Name="b/" Enabled="0"/></Storage>)");
  EXPECT_EQ(Choose(1), "a/");
  EXPECT_EQ(Choose(0) + Choose(-5) + storage->GetRecordVolume(nullptr, 1), "");
  manager.stopping = true;
  EXPECT_EQ(Choose(1), "");
  manager.stopping = false;
  drives.faulty = "a/";
  drives.error = "gone";
  EXPECT_EQ(Choose(1), "");
}

TEST_F(Storage, TellsWhetherTheLastElementOfItsOwnNamedADrive) {
  OpenWith({20, 20});
  const std::string off = R"(<Storage ID="327680"><Drive Name="a/" Enabled="0"/></Storage>)";
  const std::string foreign = R"(<Storage ID="1"><Drive Name="b/" Enabled="0"/></Storage>)";
  EXPECT_FALSE(Apply(foreign + "<Storage><Drive Name='b/' Enabled='0'/></Storage>"));
  EXPECT_EQ(Volumes(), (Names{"a/", "b/"}));
  EXPECT_TRUE(Apply(off + foreign));
  EXPECT_EQ(Volumes(), Names{"b/"});
  EXPECT_FALSE(Apply(off + R"(<Storage ID="327680" PreserveExpirationAudioWithVideo="1"/>)"));
  EXPECT_EQ(storage->PreserveAudioChanges(), 1u);
}

TEST_F(Storage, PreparedDrivesJoinOnceAndStay) {
  storage = std::make_unique<CFileSystem>(core, platform);
  qv::kelvo::TempTree tree;
  const std::string drive = tree.MakeDirectory("new");
  drives.capacityGB[drive] = 5;
  const std::string named = "><Drives><Drive/><Drive Name='" + drive;
  const ParsedXml none("<Storage ID='3604480'><Disk SupportsPrep='0'" + named +
                       "'/></Drives></Disk><Disk" + named + "'/></Drives></Disk></Storage>");
  EXPECT_FALSE(storage->ApplyDiskPrep(none.Root()));
  const ParsedXml xml("<Storage ID='3604480'><Disk SupportsPrep='1'><Drives/" + named +
                      "'/></Drives></Disk></Storage>");
  EXPECT_TRUE(storage->ApplyDiskPrep(xml.Root()));
  EXPECT_FALSE(storage->ApplyDiskPrep(xml.Root()));
  EXPECT_EQ(Volumes(), Names{drive});
  EXPECT_EQ(Choose(5), drive);
  EXPECT_EQ(host.CountLines(25, "Drive " + drive + " discovered via new prep"), 1u);

  // Without a fixed drive at open the root of the new one must survive its emptying all the same.
  tree.Write("new/2024/01/02/03/0405-00110000.ps", "");
  const std::string file = tree.Path("new/2024/01/02/03/0405-00110000.ps");
  EXPECT_TRUE(storage->RemoveFile(file, false));
  EXPECT_TRUE(tree.Files().empty());
  EXPECT_TRUE(boost::filesystem::is_directory(drive));
}

}  // namespace
}  // namespace qvsvr::kelvo
