#include <unistd.h>

#include <boost/filesystem.hpp>
#include <iterator>
#include <set>

#include "tests/platform/Fixtures.h"

namespace qv::kelvo {
namespace {

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
  // One that vanishes meanwhile is no error.
  visits = 0;
  EXPECT_EQ(directories.List(tree.Root(), "*", ListSizes::Yes,
                             [&](const DirectoryEntry&) {
                               for (const std::string& name : names) {
                                 boost::filesystem::remove(tree.Path(name));
                               }
                               names.clear();
                               ++visits;
                               return true;
                             }),
            0);
  EXPECT_EQ(visits, 1);
}

}  // namespace
}  // namespace qv::kelvo
