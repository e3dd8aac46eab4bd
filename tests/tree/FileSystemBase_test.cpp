#include "tree/FileSystemBase.h"

#include <gtest/gtest.h>

#include "tests/support/FakeHost.h"
#include "tests/support/TestBundle.h"

namespace qv::kelvo {
namespace {

using Names = std::vector<std::string>;

class FileSystemBaseTest : public testing::Test {
 protected:
  Names Volumes(std::uint32_t flags) {
    Names list = {"left over"};
    FileSystemBase(bundle.platform).GetVolumes(list, flags, nullptr);
    return list;
  }

  qvsvr::kelvo::FakeHost host;
  TestBundle bundle;
};

TEST_F(FileSystemBaseTest, KnowsTheFixedDrivesAndTellsWhatIsOdd) {
  EXPECT_EQ(Volumes(kVolumesLocal), Names{});
  EXPECT_EQ(host.CountLines(50, "No fixed drive found in /nowhere/drives"), 1u);
  bundle.drives.Add("/d/b/");
  bundle.drives.Add("/d/a-b/");
  EXPECT_EQ(Volumes(kVolumesLocal | kVolumesArchive), (Names{"/d/b/", "/d/a-b/"}));
  EXPECT_EQ(host.CountLines(50, "Drive /d/a-b/ has a '-' in its path"), 1u);
  EXPECT_EQ(Volumes(kVolumesArchive), Names{});
  EXPECT_EQ(host.Lines().size(), 2u);
  bundle.drives.Change([](FakeDrives::Table& table) {
    table.drivesError = 5;
    table.systemError = 13;
  });
  EXPECT_EQ(Volumes(kVolumesLocal).size(), 2u) << "what was gathered is kept";
  EXPECT_EQ(host.CountLines(75, "get logical drive strings error 5"), 1u);
  EXPECT_EQ(host.CountLines(75, "get windows directory error 13"), 1u);
}

TEST_F(FileSystemBaseTest, KeepsTheFirstNameOfEachDevice) {
  for (const char* name : {"/a/", "/b/", "/c/", "/d/"}) bundle.drives.Add(name);
  bundle.drives.ChangeDrive("/c/", [](FakeDrive& drive) { drive.device = 1; });
  bundle.drives.ChangeDrive("/d/", [](FakeDrive& drive) { drive.deviceError = 5; });
  Names list = {"/a/", "/b/", "/c/", "/d/", "/gone/"};
  RemoveDuplicateDevices(bundle.drives, list);
  EXPECT_EQ(list, (Names{"/a/", "/b/", "/d/", "/gone/"}));
  EXPECT_EQ(host.CountLines(50, "Drive /c/ removed because device 0x1 has already been seen"), 1u);
}

}  // namespace
}  // namespace qv::kelvo
