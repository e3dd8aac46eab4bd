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
  for (const char* name :
       {"1969", "1970", "2100", "2101", "2024a", "99999999999999999999999", "-5", "x2024"}) {
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
  tree.MakeDirectory("empty");
  EXPECT_TRUE(scanner.QueryDirectory(tree.Path("empty"), count, bytes, nullptr, true, error));
  EXPECT_EQ(count, 0u);
  tree.Write("hour/b.ps", "12345");
  tree.Write("hour/a.ps", "123");
  tree.Write("hour/a", "");
  tree.Write("hour/below/c.ps", "1");
  fs::last_write_time(tree.Path("hour/b.ps"), 1'700'000'000);
  ScannedFileSet files;
  EXPECT_TRUE(scanner.QueryDirectory(tree.Path("hour"), count, bytes, &files, true, error));
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(bytes, 8u);
  std::string names;
  for (const ScannedFile& file : files) names += file.name + " ";
  EXPECT_EQ(names, "a a.ps b.ps ");
  EXPECT_EQ(files.rbegin()->modified, 1'700'000'000);
  EXPECT_EQ(files.rbegin()->path, fs::path(tree.Path("hour/b.ps")));
  files.clear();
  EXPECT_TRUE(scanner.QueryDirectory(tree.Path("hour"), count, bytes, &files, false, error));
  EXPECT_EQ(files.rbegin()->modified, 0);
}

TEST_F(LocalDisk, MakesDirectoriesFromTheTopAndTellsWhatIsInTheWay) {
  EXPECT_TRUE(scanner.CreateDirectories(tree.Path("a/b/c"), error));
  EXPECT_TRUE(fs::is_directory(tree.Path("a/b/c")));
  tree.Write("file", "");
  EXPECT_TRUE(scanner.CreateDirectories(tree.Path("file"), error));
  EXPECT_FALSE(scanner.CreateDirectories("", error));
  EXPECT_EQ(error, "");
  EXPECT_FALSE(scanner.CreateDirectories(tree.Path("file/below"), error));
  EXPECT_TRUE(error.starts_with("error creating " + tree.Path("file/below") + " (")) << error;
}

TEST_F(LocalDisk, ChangesFilesAndThrowsWhatTheFileSystemRefuses) {
  tree.Write("a/one", "123");
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
