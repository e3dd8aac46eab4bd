#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <iterator>
#include <map>
#include <set>

#include "platform/Platform.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

class DirectoriesTest : public testing::Test {
 protected:
  // Name -> size, with "dir" for directories.
  std::map<std::string, std::string> List(std::string_view pattern, ListSizes sizes) {
    std::map<std::string, std::string> found;
    EXPECT_EQ(directories.List(tree.Root(), pattern, sizes,
                               [&](const DirectoryEntry& entry) {
                                 const std::string size = std::to_string(entry.size);
                                 found.emplace(entry.name, entry.isDirectory ? "dir" : size);
                                 return true;
                               }),
              0);
    return found;
  }

  TempTree tree;
  Directories& directories = SystemPlatform().directories;
};

using Found = std::map<std::string, std::string>;

TEST_F(DirectoriesTest, TellsKindAndSizeOfWhatMatches) {
  tree.Write("a.ps", "12345");
  tree.Write("B.PS", "1");
  tree.Write("a.psi", "123");
  tree.MakeDirectory("sub.ps/below");
  EXPECT_EQ(List("*.ps", ListSizes::Yes), (Found{{"a.ps", "5"}, {"B.PS", "1"}, {"sub.ps", "dir"}}));
  EXPECT_EQ(List("a*", ListSizes::No), (Found{{"a.ps", "0"}, {"a.psi", "0"}}));
  EXPECT_EQ(List("*", ListSizes::No).size(), 4U);
  EXPECT_EQ(List("none", ListSizes::Yes), Found{});
}

TEST_F(DirectoriesTest, SymbolicLinkCountsAsWhatItLeadsTo) {
  tree.Write("file", "1234");
  tree.MakeDirectory("disk");
  ASSERT_EQ(symlink("file", tree.Path("to_file").c_str()), 0);
  ASSERT_EQ(symlink("disk", tree.Path("to_disk").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", tree.Path("to_nothing").c_str()), 0);
  EXPECT_EQ(List("to_*", ListSizes::Yes),
            (Found{{"to_file", "4"}, {"to_disk", "dir"}, {"to_nothing", "0"}}));
  EXPECT_EQ(List("to_d*", ListSizes::No), (Found{{"to_disk", "dir"}}));
}

TEST_F(DirectoriesTest, ListsThousandsAndEndsWhenTold) {
  for (int i = 0; i < 3000; ++i) tree.Write(std::to_string(i), "");
  std::set<std::string> names;
  int visits = 0;
  const auto descriptors = [] {
    return std::distance(boost::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = descriptors();
  const auto list = [&](int most) {
    return directories.List(tree.Root(), "*", ListSizes::Yes, [&](const DirectoryEntry& entry) {
      names.emplace(entry.name);
      return ++visits != most;
    });
  };
  EXPECT_EQ(list(-1), 0);
  EXPECT_EQ(names.size(), 3000U);
  visits = 0;
  EXPECT_EQ(list(7), 0);
  EXPECT_EQ(visits, 7);
  EXPECT_EQ(descriptors(), before);
}

TEST_F(DirectoriesTest, FileThatVanishesWhileListedIsNoError) {
  for (int i = 0; i < 500; ++i) tree.Write(std::to_string(i), "x");
  int visits = 0;
  EXPECT_EQ(directories.List(tree.Root(), "*", ListSizes::Yes,
                             [&](const DirectoryEntry&) {
                               for (int i = 0; visits == 0 && i < 500; ++i) {
                                 boost::filesystem::remove(tree.Path(std::to_string(i)));
                               }
                               ++visits;
                               return true;
                             }),
            0);
  EXPECT_EQ(visits, 1);
}

TEST_F(DirectoriesTest, TellsWhyItCannotRead) {
  tree.Write("file", "");
  const auto list = [&](const char* name) {
    return directories.List(tree.Path(name), "*", ListSizes::No,
                            [](const DirectoryEntry&) { return true; });
  };
  EXPECT_EQ(list("none"), ENOENT);
  EXPECT_EQ(list("file"), ENOTDIR);
}

}  // namespace
}  // namespace qv::kelvo
