#include "storage/CFileSystem.h"

#include <future>
#include <thread>

#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

TEST(RecordVolume, UsableSpaceLeavesReservationsAndReserve) {
  EXPECT_EQ(UsableGB(1000, 99, 0, 10), -1);
  EXPECT_EQ(UsableGB(1000, 500, 20, 10), 380);
  EXPECT_EQ(UsableGB(199, 50, 0, 1), 49);  // the reserve is cut to whole GB
  EXPECT_EQ(UsableGB(4'000'000'000u, 4'000'000'000u, 0, 100), 0);
  EXPECT_EQ(UsableGB(10, 5, 5'000'000'000, 0), -4'999'999'995);
}

using Sweep = RecordingForest;

TEST_F(Sweep, OnePassRunsAtATimeAndForgettingADeviceWaitsForItsEnd) {
  AddDrives(1000);
  Open();
  GlobalRule(2, 7);
  for (int i = 0; i < 3; ++i) Plant("a/", kNow - (20 - i) * kDay);
  // Holds the pass in its first hour until the worker is about to stop it.
  std::promise<void> inside, leave;
  directories.onList = [&, entered = false](const std::string& path) mutable {
    if (entered || path.size() < std::string("a/2025/05/26/17/").size()) return;
    entered = true;
    inside.set_value();
    leave.get_future().wait();
  };
  EXPECT_FALSE(storage->KickSweeper(false));
  inside.get_future().wait();
  EXPECT_TRUE(storage->KickSweeper(false)) << "it runs still";
  std::thread helper([&] { leave.set_value(); });
  storage->ForgetDevice(0x00120000);
  helper.join();
  EXPECT_FALSE(storage->KickSweeper(true)) << "nothing runs any more";
  EXPECT_EQ(host.CountLines("Sweeper - interrupted.") + host.CountLines("Sweeper - completed"), 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
