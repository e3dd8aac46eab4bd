#include "tests/platform/Errors.h"
#include "tests/platform/Fixtures.h"

namespace qv::kelvo {
namespace {

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

TEST_F(DirectoriesTest, TellsWhyItCannotRead) {
  tree.Write("file", "");
  const auto list = [&](const char* name) {
    return directories.List(tree.Path(name), "*", ListSizes::No,
                            [](const DirectoryEntry&) { return true; });
  };
  EXPECT_EQ(list("none"), kNoDirectory);
  EXPECT_NE(list("file"), 0);
}

}  // namespace
}  // namespace qv::kelvo
