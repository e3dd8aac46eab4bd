#include "tests/support/FaultyFiles.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/Platform.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

class FaultyFilesTest : public testing::Test {
 protected:
  std::unique_ptr<MediaFile> Open(const std::string& name) {
    std::unique_ptr<MediaFile> file;
    (void)files.Open(tree.Path(name), OpenMode::CreateOrTruncate, file);
    return file;
  }
  // Error number, or bytes written if there was none.
  static int Write(MediaFile& file, std::string_view head, std::string_view body) {
    const ConstBytes parts[] = {std::as_bytes(std::span(head)), std::as_bytes(std::span(body))};
    const IoResult result = file.WriteAt(0, parts);
    return result.error != 0 ? -result.error : static_cast<int>(result.bytes);
  }

  TempTree tree;
  FaultyFiles files{SystemPlatform().mediaFiles};
};

TEST_F(FaultyFilesTest, CallsFailWhenTheirTurnComes) {
  const auto file = Open("a.ps");
  ASSERT_NE(file, nullptr);
  files.Fail(FileCall::WriteAt, 2, EIO);
  files.FailForGood(FileCall::Size, 2, ENOSPC);
  EXPECT_EQ(Write(*file, "a", "b"), 2);
  EXPECT_EQ(Write(*file, "xx", "xx"), -EIO);
  EXPECT_EQ(tree.Read("a.ps"), "ab");
  EXPECT_EQ(Write(*file, "c", "d"), 2);
  std::uint64_t size = 0;
  EXPECT_EQ(file->Size(size), 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(file->Size(size), ENOSPC);
  EXPECT_EQ(files.FaultsFired(), 4U);
  files.ClearFaults();
  EXPECT_EQ(file->Size(size), 0);
  EXPECT_EQ(files.Calls(FileCall::Size), 5U);
}

TEST_F(FaultyFilesTest, ShortWriteLeavesItsFirstBytes) {
  const auto file = Open("a.ps");
  files.WriteShort(1, 5);
  EXPECT_EQ(Write(*file, "head", "body"), 5);
  EXPECT_EQ(tree.Read("a.ps"), "headb");
}

TEST_F(FaultyFilesTest, SuffixPicksTheFile) {
  files.Set({FileCall::WriteAt, 1, FileFault::kForGood, EIO, 0, ".psi"});
  EXPECT_EQ(Write(*Open("a.ps"), "1", ""), 1);
  EXPECT_EQ(Write(*Open("a.psi"), "1", ""), -EIO);
}

TEST_F(FaultyFilesTest, OpenFilesAreCountedUntilClosedOrDestroyed) {
  files.Fail(FileCall::Open, 3, EMFILE);
  files.Fail(FileCall::Close, 1, EIO);
  auto first = Open("a.ps");
  auto second = Open("b.ps");
  EXPECT_EQ(Open("c.ps"), nullptr);
  EXPECT_EQ(files.OpenFiles(), 2U);
  EXPECT_EQ(first->Close(), EIO);
  EXPECT_EQ(first->Close(), 0);
  first.reset();
  EXPECT_EQ(files.OpenFiles(), 1U);
  second.reset();
  EXPECT_EQ(files.OpenFiles(), 0U);
}

TEST_F(FaultyFilesTest, HookRunsBeforeTheCallDoesAnything) {
  std::string seen;
  files.before = [&](FileCall call, const std::string& path) {
    if (call == FileCall::WriteAt) seen = path + " held " + tree.Read("a.ps");
  };
  EXPECT_EQ(Write(*Open("a.ps"), "new", ""), 3);
  EXPECT_EQ(seen, tree.Path("a.ps") + " held ");
}

}  // namespace
}  // namespace qv::kelvo
