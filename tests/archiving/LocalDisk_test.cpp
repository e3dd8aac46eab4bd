#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "archiving/CLocalDiskScanner.h"
#include "tests/support/TempTree.h"

namespace qvArchiving {
namespace {

namespace fs = boost::filesystem;

class LocalDisk : public testing::Test {
 protected:
  qv::kelvo::TempTree tree;
  CLocalDiskScanner scanner;
  std::string error;
  std::uint32_t count = 7;
  std::uint64_t bytes = 7;
};

TEST_F(LocalDisk, TakesDirectoriesOfYearsOnly) {
  for (const char* name : {"1969", "1970", "2100", "2101", "2024a", "99999999999999999999999"}) {
    tree.MakeDirectory(name);
  }
  tree.Write("2023", "a file");
  std::set<int> years;
  EXPECT_TRUE(scanner.GetYears(tree.Root(), years, error));
  EXPECT_EQ(years, (std::set<int>{1970, 2024, 2100}));
  EXPECT_FALSE(scanner.GetYears(tree.Path("2023"), years, error));
  EXPECT_EQ(error, "missing base path or not directory (" + tree.Path("2023") + ")");
}

TEST_F(LocalDisk, ListsRegularFilesByNameAndTellsAMissingDirectoryFromAnEmptyOne) {
  error = "old";
  EXPECT_TRUE(scanner.QueryDirectory(tree.Path("none"), count, bytes, nullptr, true, error));
  EXPECT_EQ(count, kNoSuchDirectory);
  EXPECT_EQ(bytes, 0u);
  EXPECT_EQ(error, "");
  const std::string empty = tree.MakeDirectory("empty");
  EXPECT_TRUE(scanner.QueryDirectory(empty, count, bytes, nullptr, true, error));
  EXPECT_EQ(count, 0u);
  tree.Write("hour/b.ps", "12345");
  tree.Write("hour/a.ps", "123");
  tree.Write("hour/below/c.ps", "1");
  fs::last_write_time(tree.Path("hour/b.ps"), 1'700'000'000);
  for (const bool wantTimes : {true, false}) {
    ScannedFileSet files;
    EXPECT_TRUE(scanner.QueryDirectory(tree.Path("hour"), count, bytes, &files, wantTimes, error));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(bytes, 8u);
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files.begin()->name, "a.ps");
    EXPECT_EQ(files.rbegin()->path, fs::path(tree.Path("hour/b.ps")));
    EXPECT_EQ(files.rbegin()->modified, wantTimes ? 1'700'000'000 : 0);
  }
}

TEST_F(LocalDisk, MakesAndChangesFilesAndTellsOrThrowsWhatIsInTheWay) {
  EXPECT_TRUE(scanner.CreateDirectories(tree.Path("a/b/c"), error));
  EXPECT_TRUE(scanner.TestDirectory(tree.Path("a/b/c")));
  tree.Write("a/one", "123");
  EXPECT_TRUE(scanner.CreateDirectories(tree.Path("a/one"), error));
  EXPECT_FALSE(scanner.CreateDirectories("", error));
  EXPECT_EQ(error, "");
  EXPECT_FALSE(scanner.CreateDirectories(tree.Path("a/one/below"), error));
  EXPECT_TRUE(error.starts_with("error creating " + tree.Path("a/one/below") + " (")) << error;
  std::uint64_t size = 0;
  EXPECT_TRUE(scanner.RenameFile(tree.Path("a/one"), tree.Path("a/two"), error));
  EXPECT_TRUE(scanner.TestFile(tree.Path("a/two")) && !scanner.TestDirectory(tree.Path("a/two")));
  EXPECT_THROW(scanner.DeleteDirectory(tree.Path("a"), error, false), fs::filesystem_error);
  EXPECT_THROW(scanner.GetFileSize(tree.Path("none"), size, error), fs::filesystem_error);
  EXPECT_TRUE(scanner.RemoveFile(tree.Path("none"), error));
  EXPECT_TRUE(scanner.DeleteDirectory(tree.Path("a"), error, true));
  EXPECT_FALSE(scanner.TestDirectory(tree.Path("a")));
  TargetSpace space;
  EXPECT_TRUE(scanner.GetDiskSpace(tree.Root(), space, error));
  EXPECT_TRUE(space.capacity >= space.free && space.free > 0);
}

}  // namespace
}  // namespace qvArchiving
