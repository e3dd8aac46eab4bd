#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Platform.h"
#include "tests/platform/FileLimit.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

using Step = DurableFiles::WriteStep;

class DurableFilesTest : public testing::Test {
 protected:
  void ExpectWrite(std::string_view name, std::string_view content, Step step, int error,
                   std::size_t written) {
    const DurableFiles::WriteResult result = files.WriteNew(tree.Path(name), content);
    EXPECT_EQ(result.step, step) << name;
    EXPECT_EQ(result.error, error) << name;
    EXPECT_EQ(result.written, written) << name;
  }

  TempTree tree;
  DurableFiles& files = SystemPlatform().durableFiles;
};

TEST_F(DurableFilesTest, WriteReplacesTheWholeContent) {
  ExpectWrite("kelvo.xml.pending", "a longer first version", Step::Done, 0, 22);
  ExpectWrite("kelvo.xml.pending", "second", Step::Done, 0, 6);
  EXPECT_EQ(tree.Read("kelvo.xml.pending"), "second");
}

TEST_F(DurableFilesTest, TellsTheStepThatFailed) {
  ExpectWrite("none/kelvo.xml", "x", Step::Create, ENOENT, 0);
  tree.MakeDirectory("taken");
  ExpectWrite("taken", "x", Step::Create, EISDIR, 0);
  {
    const FileLimit limit(4);
    ExpectWrite("short.xml", "123456", Step::Done, 0, 4);
  }
  const FileLimit limit(0);
  ExpectWrite("full.xml", "123456", Step::Write, EFBIG, 0);
}

TEST_F(DurableFilesTest, FileThatAnotherProcessSavesIsLeftAlone) {
  tree.Write("kelvo.xml.pending", "of the other");
  const int other = open(tree.Path("kelvo.xml.pending").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  ExpectWrite("kelvo.xml.pending", "ours", Step::Create, EWOULDBLOCK, 0);
  EXPECT_EQ(tree.Read("kelvo.xml.pending"), "of the other");
  close(other);
  ExpectWrite("kelvo.xml.pending", "ours", Step::Done, 0, 4);
}

TEST_F(DurableFilesTest, RenameRefusesATakenName) {
  tree.Write("from", "new");
  tree.Write("to", "old");
  EXPECT_EQ(files.Rename(tree.Path("from"), tree.Path("to")), EEXIST);
  EXPECT_EQ(tree.Read("from") + tree.Read("to"), "newold");

  EXPECT_EQ(files.Remove(tree.Path("to")), 0);
  EXPECT_EQ(files.Rename(tree.Path("from"), tree.Path("to")), 0);
  EXPECT_EQ(tree.Files(), std::vector<std::string>{"to"});
  EXPECT_EQ(tree.Read("to"), "new");
}

TEST_F(DurableFilesTest, MissingFileIsToldApart) {
  EXPECT_TRUE(files.IsMissing(files.Remove(tree.Path("none"))));
  EXPECT_TRUE(files.IsMissing(files.Rename(tree.Path("none"), tree.Path("to"))));
  tree.Write("to", "");
  EXPECT_FALSE(files.IsMissing(files.Remove(tree.Path("to/below"))));
  EXPECT_FALSE(files.IsMissing(0));
}

}  // namespace
}  // namespace qv::kelvo
