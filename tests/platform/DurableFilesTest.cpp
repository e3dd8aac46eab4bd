#include "tests/platform/Errors.h"
#include "tests/platform/Fixtures.h"

namespace qv::kelvo {
namespace {

TEST_F(DurableFilesTest, WriteReplacesTheWholeContent) {
  ExpectWrite("kelvo.xml.pending", "a longer first version", Step::Done, 0, 22);
  ExpectWrite("kelvo.xml.pending", "second", Step::Done, 0, 6);
  EXPECT_EQ(tree.Read("kelvo.xml.pending"), "second");
}

TEST_F(DurableFilesTest, RenameRefusesATakenName) {
  tree.Write("from", "new");
  tree.Write("to", "old");
  EXPECT_EQ(files.Rename(tree.Path("from"), tree.Path("to")), kNameTaken);
  EXPECT_EQ(tree.Read("from") + tree.Read("to"), "newold");

  EXPECT_EQ(files.Remove(tree.Path("to")), 0);
  EXPECT_EQ(files.Rename(tree.Path("from"), tree.Path("to")), 0);
  EXPECT_EQ(tree.Files(), std::vector<std::string>{"to"});
  EXPECT_EQ(tree.Read("to"), "new");
}

TEST_F(DurableFilesTest, MissingFileIsToldApart) {
  EXPECT_TRUE(files.IsMissing(files.Remove(tree.Path("none"))));
  EXPECT_TRUE(files.IsMissing(files.Rename(tree.Path("none"), tree.Path("to"))));
  EXPECT_FALSE(files.IsMissing(0));
}

}  // namespace
}  // namespace qv::kelvo
