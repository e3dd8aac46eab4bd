#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>

#include "platform/Platform.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

// Runs in a directory of its own, since drives are looked for in the current one.
class DrivesTest : public testing::Test {
 protected:
  void SetUp() override { boost::filesystem::current_path(tree.Root()); }
  void TearDown() override { boost::filesystem::current_path(earlier); }

  std::vector<std::string> Found() {
    std::vector<std::string> names{"stale"};
    EXPECT_EQ(drives.FixedDrives(names), 0);
    return names;
  }

  TempTree tree;
  const boost::filesystem::path earlier = boost::filesystem::current_path();
  Drives& drives = SystemPlatform().drives;
};

TEST_F(DrivesTest, NoDirectoryOrAnEmptyOneMeansNoDrive) {
  EXPECT_TRUE(Found().empty());
  tree.MakeDirectory("drives");
  EXPECT_TRUE(Found().empty());
  EXPECT_EQ(drives.SearchedPlace(), tree.Path("drives"));
}

TEST_F(DrivesTest, DirectoriesAndLinksToThemAreDrivesUnderTheirOwnNames) {
  tree.MakeDirectory("drives/d2");
  tree.MakeDirectory("drives/d1/2026");
  tree.MakeDirectory("elsewhere/disk");
  tree.Write("drives/readme.txt", "mount disks here");
  ASSERT_EQ(symlink("../elsewhere/disk", tree.Path("drives/d3").c_str()), 0);
  ASSERT_EQ(symlink("readme.txt", tree.Path("drives/d4").c_str()), 0);
  ASSERT_EQ(symlink("gone", tree.Path("drives/d5").c_str()), 0);
  EXPECT_EQ(Found(), (std::vector<std::string>{tree.Path("drives/d1/"), tree.Path("drives/d2/"),
                                               tree.Path("drives/d3/")}));
}

TEST_F(DrivesTest, FileInPlaceOfTheDirectoryIsAnError) {
  tree.Write("drives", "");
  std::vector<std::string> names{"stale"};
  EXPECT_EQ(drives.FixedDrives(names), ENOTDIR);
  EXPECT_TRUE(names.empty());
}

TEST_F(DrivesTest, SystemDirectoryLiesOutsideAllDrives) {
  std::string path;
  EXPECT_EQ(drives.SystemDirectory(path), 0);
  EXPECT_EQ(path, "/usr");
}

TEST_F(DrivesTest, SpaceAndDeviceAreThoseOfThePath) {
  const auto expected = boost::filesystem::space(tree.Root());
  DriveSpace space;
  EXPECT_EQ(drives.Space(tree.Root(), space), "");
  EXPECT_EQ(space.capacity, expected.capacity);
  EXPECT_GT(space.free, 0U);
  EXPECT_GE(space.free, space.available);
  EXPECT_EQ(drives.Space(tree.Path("none"), space), "No such file or directory");

  struct stat status {};
  ASSERT_EQ(stat("/proc", &status), 0);
  std::uint64_t device = 0;
  std::uint64_t own = 0;
  EXPECT_EQ(drives.DeviceNumber("/proc/self", device), 0);
  EXPECT_EQ(device, status.st_dev);
  EXPECT_EQ(drives.DeviceNumber(tree.Root(), own), 0);
  EXPECT_NE(device, own);
  EXPECT_EQ(drives.DeviceNumber(tree.Path("none"), device), ENOENT);
}

}  // namespace
}  // namespace qv::kelvo
