#include "storage/RecordingRemoval.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "storage/DriveTable.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

using Files = std::vector<std::string>;

class RecordingRemoval : public ::testing::Test {
 protected:
  // A directory in the place of a file, with something in it, can't be removed as a file.
  void Block(const std::string& path) { tree.Write(path + "/in the way", ""); }
  bool Remove(const std::string& path) { return RemoveRecording(tree.Path(path), depth); }

  FakeHost host;
  qv::kelvo::TempTree tree;
  std::size_t depth = CountPathParts(tree.MakeDirectory("a"));
};

TEST_F(RecordingRemoval, TakesCompanionsAndEmptiedDirectoriesButNotTheVolume) {
  for (const char* extension : {"ps", "psi", "psm"}) {
    tree.Write(std::string("a/2024/05/06/07/0800-00110000.") + extension, "x");
  }
  tree.Write("a/2024/05/31/23/0000-00110000.ps", "x");
  EXPECT_TRUE(Remove("a/2024/05/06/07/0800-00110000.ps"));
  EXPECT_EQ(tree.Files(), Files{"a/2024/05/31/23/0000-00110000.ps"});
  EXPECT_TRUE(Remove("a/2024/05/31/23/0000-00110000.ps"));
  EXPECT_FALSE(boost::filesystem::exists(tree.Path("a/2024")));
  EXPECT_TRUE(boost::filesystem::is_directory(tree.Path("a")));
  EXPECT_TRUE(Remove("a/2024/05/31/23/0000-00110000.ps")) << "a missing file is no error";
  EXPECT_TRUE(host.Lines().empty());
}

TEST_F(RecordingRemoval, FailureOfTheIndexIsToldButIsASuccess) {
  tree.Write("a/2024/05/06/07/0800-00110000.ps", "x");
  Block("a/2024/05/06/07/0800-00110000.psi");
  EXPECT_TRUE(Remove("a/2024/05/06/07/0800-00110000.ps"));
  EXPECT_EQ(host.CountLines(50, "remove " + tree.Path("a/2024/05/06/07/0800-00110000.psi") + ", "),
            1u);
  EXPECT_EQ(host.Lines().size(), 1u) << "a directory that isn't empty is nothing to tell";
}

TEST_F(RecordingRemoval, FailureOfMediaOrCompanionIsAFailure) {
  Block("a/2024/05/06/07/0800-00110000.ps");
  tree.Write("a/2024/05/06/07/0800-00110000.psi", "x");
  EXPECT_FALSE(Remove("a/2024/05/06/07/0800-00110000.ps"));
  EXPECT_EQ(host.CountLines(50, "remove "), 1u);
  EXPECT_TRUE(tree.FilesEndingIn(".psi").empty());

  tree.Write("a/2024/05/06/08/0900-00110000.ps", "x");
  Block("a/2024/05/06/08/0900-00110000.psm");
  EXPECT_FALSE(Remove("a/2024/05/06/08/0900-00110000.ps"));
  EXPECT_EQ(host.CountLines(50, "remove "), 1u) << "the companion's failure isn't told";
}

}  // namespace
}  // namespace qvsvr::kelvo
