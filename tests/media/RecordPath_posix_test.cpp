#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "media/RecordPath.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

namespace fs = boost::filesystem;

TEST(RecordPath, MakesTheDirectoriesReadableForAllAndWritableForOne) {
  TempTree tree;
  (void)MakePath(tree.Root() + "/r/", 1'750'000'000'000, 0, CreateDirectories::Yes);
  for (const char* level : {"r", "r/2025", "r/2025/06", "r/2025/06/15", "r/2025/06/15/17"}) {
    EXPECT_EQ(fs::status(tree.Path(level)).permissions(), 0755) << level;
  }
}

}  // namespace
}  // namespace qv::kelvo
