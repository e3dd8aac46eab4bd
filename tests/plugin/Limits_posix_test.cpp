#include <cerrno>
#include <ctime>
#include <fstream>

#include "tests/plugin/Hostile.h"

// What the plug-in uses of the process: descriptors, memory, time. That no search leaves a file
// open is checked after each one, by SearchFixture.
namespace plugintest {
namespace {

using Limits = SeamTest;

// Highest resident size so far, in MiB.
std::size_t HighWaterMiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) / 1024;
  }
  ADD_FAILURE() << "no VmHWM";
  return 0;
}

std::size_t CpuSecondsSince(std::clock_t begin) {
  return static_cast<std::size_t>((std::clock() - begin) / CLOCKS_PER_SEC);
}

// Sanitizers multiply both.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kSlack = 10;
#else
constexpr std::size_t kSlack = 1;
#endif

TEST_F(Limits, LongMessagesCostBoundedMemoryAndTime) {
  Start();
  const auto memory = HighWaterMiB();
  const std::clock_t begin = std::clock();
  for (const auto& message : HostileMessages()) {
    if (message.size() < 100'000) continue;
    for (int n = 0; n < 3; ++n) host->Ioctl(KELVO_IOCTL_CONFIGURATION, message);
    Sync();
  }
  EXPECT_LT(HighWaterMiB() - memory, 300 * kSlack);
  EXPECT_LT(CpuSecondsSince(begin), 10 * kSlack);
}

TEST_F(Limits, TenThousandDevicesWithFewDescriptors) {
  const auto camera = Camera();
  Start({camera});
  const auto memory = HighWaterMiB();
  const std::clock_t begin = std::clock();
  bundle.files.FailForGood(qv::kelvo::FileCall::Open, 200, EMFILE);
  host->Ioctl(KELVO_IOCTL_CONFIGURATION, ManyDevices(10'000, 0x00120000));
  Sync();
  const auto first = MakeFrames(VideoProvider(camera), Now(), 40, Times(2, "IPB"), 300);
  GiveAll(first);
  // They go as they came.
  host->Ioctl(KELVO_IOCTL_CONFIGURATION, "<qDVR><Devices ID=\"1179648\"/></qDVR>");
  bundle.clock.Advance(1000);
  const auto second = MakeFrames(VideoProvider(camera), Now(), 40, Times(2, "IPB"), 300);
  GiveAll(second);
  Finish();
  EXPECT_LT(HighWaterMiB() - memory, 600 * kSlack);
  EXPECT_LT(CpuSecondsSince(begin), 20 * kSlack);
  auto wanted = first;
  wanted.insert(wanted.end(), second.begin(), second.begin() + 3);
  ExpectFrames(FramesOf(RecordingsOf(camera, PsEnd::Unclosed), kVideoSlot), wanted);
}

}  // namespace
}  // namespace plugintest
