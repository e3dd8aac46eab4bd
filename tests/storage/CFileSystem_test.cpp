#include "storage/CFileSystem.h"

#include "storage/DriveTable.h"
#include "tests/storage/RecordingForest.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

using Names = std::vector<std::string>;

class Storage : public RecordingForest {
 protected:
  std::string Choose(std::int64_t gigabytes) {
    return storage->GetRecordVolume(&manager, gigabytes);
  }
};

TEST(DriveTable, SystemDriveIsOffBesideOthersAndKeepsATenth) {
  const struct {
    Names names;
    std::string system;  // directory
    bool isSystem, disabled;
  } rows[] = {
      {{"/m/a/"}, "/m/a/os", true, false},
      {{"/m/a/", "/m/b/"}, "/m/a/os", true, true},
      {{"/m/a/", "/m/b/"}, "/m/b/os", false, false},
      {{"/m/a/", "/m/b/"}, "", false, false},
      // Anywhere in the text counts, not only at its start.
      {{"/os/", "/m/b/"}, "/m/os/lib", true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.names[0] + " with " + row.system);
    DriveTable table;
    table.drives["/left over/"].disabled = true;
    table.Fill(row.names, row.system);
    ASSERT_EQ(table.drives.size(), row.names.size());
    const DriveRecord& record = table.drives.at(row.names[0]);
    EXPECT_EQ(record.system, row.isSystem);
    EXPECT_EQ(record.disabled, row.disabled);
    EXPECT_EQ(record.reservePercent, row.isSystem ? 10 : 0);
  }
}

TEST(RecordVolume, UsableSpaceLeavesReservationsAndReserve) {
  EXPECT_EQ(UsableGB(1000, 99, 0, 10), -1);
  EXPECT_EQ(UsableGB(1000, 500, 20, 10), 380);
  EXPECT_EQ(UsableGB(199, 50, 0, 1), 49);  // the reserve is cut to whole GB
  EXPECT_EQ(UsableGB(4'000'000'000u, 4'000'000'000u, 0, 100), 0);
  EXPECT_EQ(UsableGB(10, 5, 5'000'000'000, 0), -4'999'999'995);
}

TEST_F(Storage, RecordsWhereMostRoomIsLeft) {
  AddDrives(1000);
  drives.count = [](const std::string& name) { return name == "a/" ? 980u : 979u; };
  Open();
  EXPECT_EQ(Choose(1), "b/");
  manager.reservedOn = "b/";
  manager.reserved = 1;
  EXPECT_EQ(Choose(1), "a/") << "a tie goes to the earlier";
  EXPECT_EQ(Choose(20), "a/");
  EXPECT_EQ(Choose(21), "");
  Apply(R"(<Storage ID="327680"><Drive Name="a/" Percent="99"/></Storage>)");
  EXPECT_EQ(Choose(20), "b/");
  // Elements of others don't count; the last of its own tells whether drives were named.
  const std::string off = R"(<Storage ID="327680"><Drive Name="b/" Enabled="0"/></Storage>)";
  const std::string foreign = R"(<Storage ID="1"><Drive Name="a/" Enabled="0"/></Storage>)";
  EXPECT_FALSE(Apply(foreign + "<Storage><Drive Name='a/' Enabled='0'/></Storage>"));
  EXPECT_FALSE(Apply(off + R"(<Storage ID="327680" TimeLapse="5"/>)"));
  EXPECT_TRUE(Apply(off + foreign));
  EXPECT_EQ(Choose(1), "a/");
  EXPECT_EQ(Choose(0) + Choose(-5) + storage->GetRecordVolume(nullptr, 1), "");
  manager.stopping = true;
  EXPECT_EQ(Choose(1), "");
}

TEST_F(Storage, PreparedDrivesJoinOnceAndStay) {
  storage = std::make_unique<CFileSystem>(core, platform);
  EXPECT_FALSE(storage->LoadStorage());
  EXPECT_EQ(Choose(1), "");
  qv::kelvo::TempTree tree;
  const std::string drive = tree.MakeDirectory("new");
  drives.capacityGB[drive] = 5;
  const auto prepare = [&](const std::string& attributes) {
    const ParsedXml xml("<Storage ID='3604480'><Disk " + attributes +
                        "><Drives/><Drives><Drive/><Drive Name='" + drive +
                        "'/></Drives></Disk></Storage>");
    return storage->ApplyDiskPrep(xml.Root());
  };
  EXPECT_FALSE(prepare("SupportsPrep='0'"));
  EXPECT_FALSE(prepare(""));
  EXPECT_TRUE(prepare("SupportsPrep='1'"));
  EXPECT_FALSE(prepare("SupportsPrep='1'"));
  EXPECT_EQ(storage->Volumes().ListRecordable(), Names{drive});
  EXPECT_EQ(Choose(5), drive);

  // Without a fixed drive at open the root of the new one must survive its emptying all the same.
  tree.Write("new/2024/01/02/03/0405-00110000.ps", "");
  EXPECT_TRUE(storage->RemoveFile(tree.Path("new/2024/01/02/03/0405-00110000.ps"), false));
  EXPECT_TRUE(tree.Files().empty());
  EXPECT_TRUE(boost::filesystem::is_directory(drive));
}

}  // namespace
}  // namespace qvsvr::kelvo
