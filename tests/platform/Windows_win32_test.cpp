#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <algorithm>
#include <boost/filesystem.hpp>

#include "platform/Files.h"
#include "platform/Threads.h"
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

// What the system calls find, Boost's must find, too: characters beyond U+FFFF, and bytes that are
// no characters at all.
TEST_F(MediaFilesTest, AnyNameIsTheSameForEveryCall) {
  for (const char* name : {"\xF0\x9F\x98\x80.ps", "B\xFCro.ps", "\xED\xA0\x80.ps"}) {
    const std::string path = tree.Root() + '\\' + name;
    std::unique_ptr<MediaFile> file;
    ASSERT_EQ(files.Open(path, OpenMode::CreateOrTruncate, file), 0);
    ASSERT_EQ(Write(*file, 0, {"12345"}).bytes, 5U);
    std::uint64_t size = 0;
    EXPECT_EQ(FileSize(path, size), 0);  // while it is being written
    EXPECT_EQ(size, 5U);
    file->Close();
    EXPECT_TRUE(Exists(path) && fs::exists(fs::path(path)));
    EXPECT_EQ(fs::path(fs::path(path).string()), fs::path(path));
    EXPECT_EQ(RemoveFile(path), 0);
    EXPECT_TRUE(IsMissing(RemoveFile(path)));
    DriveSpace space;
    EXPECT_NE(SystemPlatform().drives.Space(std::string("Q:\\") + name, space), "");
  }
}

TEST_F(DurableFilesTest, ReadOnlyMarkIsNoObstacleButAHolderIs) {
  const std::string from = tree.Path("from"), to = tree.Path("to");
  const std::wstring wide = boost::filesystem::path(to).wstring();
  const auto mark = [&] {
    tree.Write("from", "new");
    tree.Write("to", "old");
    EXPECT_NE(SetFileAttributesW(wide.c_str(), FILE_ATTRIBUTE_READONLY), 0);
  };
  mark();
  EXPECT_EQ(RemoveFile(to), 0);
  mark();
  EXPECT_EQ(files.Remove(to), 0);
  mark();
  EXPECT_EQ(files.Replace(from, to), 0);
  EXPECT_EQ(tree.Read("to"), "new");
  tree.Write("from", "newer");
  const HANDLE held =
      CreateFileW(wide.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  for (const int error : {RemoveFile(to), files.Remove(to), files.Replace(from, to)}) {
    EXPECT_TRUE(IsBusy(error)) << error;
  }
  CloseHandle(held);
  EXPECT_EQ(files.Replace(from, to), 0);
}

TEST(Win32Threads, YieldingThreadIsBelowNormalUntilItIsRaised) {
  const auto priority = [] { return GetThreadPriority(GetCurrentThread()); };
  const std::uint64_t thread = YieldToOtherThreads();
  EXPECT_EQ(priority(), THREAD_PRIORITY_BELOW_NORMAL);
  RaiseThread(thread);
  EXPECT_EQ(priority(), THREAD_PRIORITY_NORMAL);
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
  for (std::size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    EXPECT_EQ(MakeDirectory(tree.Path(path.substr(0, end))), 0);
  }
  EXPECT_TRUE(IsDirectory(tree.Path(path)));
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
  EXPECT_EQ(RemoveFile(tree.Path(path + "/\xC3\xA4.ps")), 0);
  EXPECT_EQ(RemoveEmptyDirectory(tree.Path(path)), 0);
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
