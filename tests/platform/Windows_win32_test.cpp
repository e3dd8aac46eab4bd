#include <algorithm>
#include <boost/filesystem.hpp>

#include "tests/platform/Fixtures.h"

// What only Windows has: sharing, letters, wide names, long paths.
namespace qv::kelvo {
namespace {

namespace fs = boost::filesystem;

constexpr int kAccessDenied = 5, kSharingViolation = 32;

TEST_F(MediaFilesTest, OpenFileIsSharedButStaysInItsPlace) {
  tree.Write("a.ps", "");
  const auto writer = Create("a.ps");
  const auto second = Create("a.ps");
  const auto reader = Open("a.ps", OpenMode::Read);
  ASSERT_EQ(Write(*writer, 0, {"head", "body"}).bytes, 8U);
  ASSERT_EQ(Write(*second, 8, {"tail"}).bytes, 4U);
  EXPECT_EQ(Read(*reader, 0, 20), "headbodytail");
  boost::system::error_code error;
  fs::remove(tree.Path("a.ps"), error);
  EXPECT_EQ(error.value(), kSharingViolation);
  writer->Close(), second->Close(), reader->Close();
  EXPECT_TRUE(fs::remove(tree.Path("a.ps"), error)) << error.message();
  std::unique_ptr<MediaFile> directory;
  EXPECT_EQ(files.Open(tree.Root(), OpenMode::Read, directory), kAccessDenied);
}

TEST_F(MediaFilesTest, PlaceOfReadsAndWritesDoesNotDependOnTheirOrder) {
  const auto file = Create("a.ps");
  ASSERT_EQ(Write(*file, 0, {"0123456789"}).bytes, 10U);
  EXPECT_EQ(Read(*file, 2, 3), "234");
  ASSERT_EQ(Write(*file, 5, {"F"}).bytes, 1U);  // where the read has left the file
  EXPECT_EQ(file->SetSize(8), 0);
  ASSERT_EQ(Write(*file, 6, {"G"}).bytes, 1U);
  EXPECT_EQ(Read(*file, 7, 9), "7");
  ASSERT_EQ(Write(*file, 8, {"end"}).bytes, 3U);
  EXPECT_EQ(tree.Read("a.ps"), "01234FG7end");

  const auto reader = Open("a.ps", OpenMode::Read);
  EXPECT_EQ(Read(*reader, 0, 99), "01234FG7end");
  EXPECT_EQ(Read(*reader, 11, 99), "");
  ASSERT_EQ(Write(*file, 11, {"more"}).bytes, 4U);
  EXPECT_EQ(Read(*reader, 11, 99), "more");
}

TEST_F(DurableFilesTest, SavedFileIsNotShared) {
  tree.Write("kelvo.xml.pending", "of the other");
  std::unique_ptr<MediaFile> other;
  ASSERT_EQ(SystemPlatform().mediaFiles.Open(tree.Path("kelvo.xml.pending"), OpenMode::Read, other),
            0);
  ExpectWrite("kelvo.xml.pending", "ours", Step::Create, kSharingViolation, 0);
  EXPECT_EQ(tree.Read("kelvo.xml.pending"), "of the other");
  other->Close();
  ExpectWrite("kelvo.xml.pending", "ours", Step::Done, 0, 4);
  tree.MakeDirectory("taken");
  ExpectWrite("taken", "x", Step::Create, kAccessDenied, 0);
}

TEST_F(DirectoriesTest, ListingIsClosedWhenItEndsEarly) {
  tree.MakeDirectory("hour");
  for (int i = 0; i < 300; ++i) tree.Write("hour/" + std::to_string(i), "");
  int visits = 0;
  const auto list = [&](int most) {
    visits = 0;
    return directories.List(tree.Path("hour"), "*", ListSizes::No,
                            [&](const DirectoryEntry&) { return ++visits != most; });
  };
  EXPECT_EQ(list(7), 0);
  EXPECT_EQ(visits, 7);
  fs::rename(tree.Path("hour"), tree.Path("other"));  // throws as long as the directory is in use
  EXPECT_NE(list(-1), 0);
}

TEST_F(DirectoriesTest, NamesAreUtf8AndPathsMayBeLong) {
  std::string name =
      "K\xC3\xBC"
      "che \xE2\x82\xAC";
  std::string path = name;
  for (int i = 0; i < 6; ++i) path += '/' + std::string(60, static_cast<char>('a' + i));
  fs::create_directories("\\\\?\\" + tree.Path(path));
  std::unique_ptr<MediaFile> file;
  ASSERT_EQ(
      SystemPlatform().mediaFiles.Open(tree.Path(path + "/1.ps"), OpenMode::CreateOrTruncate, file),
      0);
  file->Close();
  DurableFiles& durable = SystemPlatform().durableFiles;
  EXPECT_EQ(durable.Rename(tree.Path(path + "/1.ps"), tree.Path(path + "/\xC3\xA4.ps")), 0);
  EXPECT_EQ(List("K??he *", ListSizes::No), (Found{{name, "dir"}}));
  std::vector<std::string> below;
  EXPECT_EQ(directories.List(tree.Path(path), "*.ps", ListSizes::No,
                             [&](const DirectoryEntry& entry) {
                               below.emplace_back(entry.name);
                               return true;
                             }),
            0);
  EXPECT_EQ(below, std::vector<std::string>{"\xC3\xA4.ps"});
  EXPECT_EQ(durable.Remove(tree.Path(path + "/\xC3\xA4.ps")), 0);
}

TEST(Win32Drives, FixedLettersAreDrivesAndTheSystemLivesOnOne) {
  Drives& drives = SystemPlatform().drives;
  std::vector<std::string> names{"stale"};
  ASSERT_EQ(drives.FixedDrives(names), 0);
  std::string system;
  ASSERT_EQ(drives.SystemDirectory(system), 0);
  const auto holdsSystem = [&](const std::string& name) { return system.starts_with(name); };
  EXPECT_EQ(std::count_if(names.begin(), names.end(), holdsSystem), 1) << system;
  for (const std::string& name : names) {
    EXPECT_TRUE(name.size() == 3 && name.ends_with(":\\")) << name;
    DriveSpace space;
    std::uint64_t device = 0;
    EXPECT_EQ(drives.Space(name, space), "");
    EXPECT_GE(space.capacity, space.free);
    EXPECT_GE(space.free, space.available);
    EXPECT_EQ(drives.DeviceNumber(name, device), 0);
  }
  DriveSpace space;
  EXPECT_NE(drives.Space("Q:\\none", space), "");
  std::uint64_t device = 0;
  EXPECT_NE(drives.DeviceNumber("Q:\\none", device), 0);
  EXPECT_EQ(drives.SearchedPlace(), "");
}

}  // namespace
}  // namespace qv::kelvo
