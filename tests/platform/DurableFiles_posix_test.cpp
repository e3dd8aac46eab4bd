#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "tests/platform/FileLimit.h"
#include "tests/platform/Fixtures.h"

namespace qv::kelvo {
namespace {

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

TEST_F(DurableFilesTest, RenameThatCannotBeMadeDurableIsTakenBack) {
  tree.Write("from", "kept");
  tree.Write("other", "");
  const std::string from = tree.Path("from"), to = tree.Path("to");
  // A sanitizer checks an object with descriptors of its own, once.
  EXPECT_EQ(files.Remove(tree.Path("other")), 0);
  rlimit earlier{};
  getrlimit(RLIMIT_NOFILE, &earlier);
  const rlimit none{0, earlier.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const int error = files.Rename(from, to);
  setrlimit(RLIMIT_NOFILE, &earlier);
  EXPECT_EQ(error, EMFILE);
  EXPECT_EQ(tree.Files(), std::vector<std::string>{"from"});
}

TEST_F(DurableFilesTest, NameBelowAFileIsNotMerelyMissing) {
  tree.Write("to", "");
  EXPECT_FALSE(files.IsMissing(files.Remove(tree.Path("to/below"))));
}

}  // namespace
}  // namespace qv::kelvo
