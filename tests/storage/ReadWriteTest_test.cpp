#include "storage/StatusReport.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>

#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

TEST(DriveTest, FailsWithItsReasonAndPassesWithANewPatternEachTime) {
  FakeHost host;
  const qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle system;
  qv::kelvo::FaultyFiles& files = system.files;
  ReadWriteTest test(system.platform);
  const std::string drive = tree.MakeDirectory("a");
  EXPECT_TRUE(test.Run(drive));
  EXPECT_EQ(tree.Read("a/kelvo/test.bin"), std::string(4096, '\0'));
  EXPECT_TRUE(test.Run(drive));
  EXPECT_EQ(tree.Read("a/kelvo/test.bin"), std::string(4096, '\1'));

  using qv::kelvo::FileCall;
  const auto fails = [&](const std::string& line) {
    host.ForgetTraffic();
    EXPECT_FALSE(test.Run(drive));
    EXPECT_EQ(host.CountLines(75, line), 1u) << line;
    files.ClearFaults();
  };
  const std::pair<qv::kelvo::FileFault, const char*> faults[] = {
      {{FileCall::Open, 1, 1, ENOSPC, 0, "test.bin"}, "RWT - write "},
      {{FileCall::WriteAt, 1, 1, EIO, 0, "test.bin"}, "RWT - write "},
      {{FileCall::WriteAt, 1, 1, 0, 4000, "test.bin"}, "RWT - write "},
      {{FileCall::Close, 1, 1, EIO, 0, "test.bin"}, "RWT - write "},
      {{FileCall::Open, 2, 1, ENOSPC, 0, "test.bin"}, "RWT - read "},
      {{FileCall::ReadAt, 1, 1, EIO, 0, "test.bin"}, "RWT - read "},
  };
  for (const auto& [fault, line] : faults) {
    files.Set(fault);
    fails(line);
  }
  files.before = [&](FileCall call, const std::string&) {
    if (call == FileCall::ReadAt) tree.Write("a/kelvo/test.bin", std::string(4096, 'x'));
  };
  fails("RWT - compare ");
  files.before = nullptr;
  tree.Write("a/kelvo/foreign", "");
  fails("RWT - remove ");
  // Somebody's for a moment only: what is held, or removed and held, is waited for.
  int pauses = 0;
  system.clock.onPause = [&] {
    if (++pauses == 10) boost::filesystem::remove(tree.Path("a/kelvo/foreign"));
  };
  EXPECT_TRUE(test.Run(drive));
  EXPECT_EQ(pauses, 10);
  for (const std::size_t first : {1, 2}) {
    files.Set({FileCall::Open, first, 20, qv::kelvo::kBusyError, 0, "test.bin"});
    EXPECT_TRUE(test.Run(drive));
  }
  boost::filesystem::remove_all(drive);
  fails("RWT - create ");
  EXPECT_FALSE(boost::filesystem::exists(drive)) << "a drive that is gone isn't made up";
}

}  // namespace
}  // namespace qvsvr::kelvo
