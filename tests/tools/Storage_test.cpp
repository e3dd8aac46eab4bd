#include "tests/tools/ToolFixture.h"

// Storage settings as a user gives them, and what the tool tells of drives.
namespace toolstest {
namespace {

using NvrhostStorage = ToolTest;

TEST_F(NvrhostStorage, SetsWhatIsAskedAndShowsTheDrives) {
  tree.MakeDirectory("drives/disk1");
  tree.MakeDirectory("drives/disk2");
  auto told = Nvrhost(
      "storage --dir . --use disk1=80 --disable disk2 --expire-days 20 --content-age 3600 "
      "--cleanup reports --bookmark '@1750000000/@1750000300'");
  EXPECT_EQ(told.code, 0) << told.text;
  EXPECT_TRUE(told.Says("drives/disk1/     80")) << told.text;
  EXPECT_TRUE(told.Says("Healthy")) << told.text;
  EXPECT_TRUE(told.Says("Disabled")) << told.text;
  EXPECT_TRUE(told.Says("oldest recording that may go: none")) << told.text;
  const auto settings = tree.Read("kelvo.xml");
  for (const char* part :
       {"Type=\"2\" Days=\"20\"", "ContentAge=\"3600\"", "FSCleanupRemoves=\"0\"",
        "Start=\"1750000000\"", "Percent=\"80\"", "Enabled=\"0\""}) {
    EXPECT_NE(settings.find(part), std::string::npos) << part << " in " << settings;
  }

  // What isn't asked for stays; what is can be taken back.
  told = Nvrhost("storage --dir . --enable disk2 --expire-days 0 --no-bookmarks");
  EXPECT_TRUE(told.Says("drives/disk1/     80")) << told.text;
  EXPECT_FALSE(told.Says("Disabled")) << told.text;
  const auto later = tree.Read("kelvo.xml");
  EXPECT_NE(later.find("Type=\"0\" Days=\"0\""), std::string::npos) << later;
  EXPECT_EQ(later.find("Bookmark"), std::string::npos) << later;

  told = Nvrhost("storage --dir . --reserve 1000000");
  EXPECT_EQ(told.code, 1) << "that is an alarm";
  EXPECT_TRUE(told.Says("reservation nvrhost-1: no drive can have so much")) << told.text;
  for (const char* bad :
       {"--use disk1", "--use disk1=101", "--use disk3=5", "--keep-days -1", "--bookmark '@5'",
        "--bookmark '@1750000300/@1750000000'", "--reserve 0"}) {
    told = Nvrhost(std::string("storage --dir . ") + bad);
    EXPECT_EQ(told.code, 2) << bad << told.text;
  }
  EXPECT_EQ(tree.Read("kelvo.xml"), later);
}

TEST_F(NvrhostStorage, FullDriveIsAnAlarm) {
  const std::string small = "--size 64x64 --fps 5 --gop 5 --seconds 5 --speed max";
  tree.MakeDirectory("drives/disk1");
  auto told = Nvrhost("record --dir . --drives --use disk1=0 --keep-days 9 " + small);
  EXPECT_TRUE(told.Says("ALARM: drive ")) << told.text;
  EXPECT_TRUE(told.Says("disk1/: Recording Not Possible")) << told.text;
  EXPECT_EQ(tree.FilesEndingIn(".ps").size(), 0u);
  told = Nvrhost("record --dir . --use disk1=100 --camera-keep 1=30 " + small);
  EXPECT_FALSE(told.Says("ALARM")) << told.text;
  EXPECT_EQ(tree.FilesEndingIn(".ps").size(), 1u);
}

}  // namespace
}  // namespace toolstest
