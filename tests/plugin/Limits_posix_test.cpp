#include <cerrno>
#include <chrono>
#include <fstream>

#include "tests/plugin/Hostile.h"
#include "tests/plugin/SearchFixture.h"

// What the plug-in uses of the process: descriptors, memory, time.
namespace plugintest {
namespace {

using Limits = SeamTest;

std::size_t OpenDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry :
       boost::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

// Highest resident size so far, in MiB.
std::size_t HighWaterMiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) / 1024;
  }
  ADD_FAILURE() << "no VmHWM";
  return 0;
}

// Sanitizers multiply both.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kSlack = 10;
#else
constexpr std::size_t kSlack = 1;
#endif

TEST_F(Limits, DescriptorsComeBackAfterFaults) {
  const auto camera = Camera();
  using qv::kelvo::FileCall;
  Start();
  Stop();
  const auto usual = OpenDescriptors();
  for (const auto call : {FileCall::Open, FileCall::WriteAt}) {
    for (std::size_t n = 1; n < 30; ++n) {
      bundle.files.ClearFaults();
      bundle.files.Fail(call, n, EIO);
      Start();
      Configure({camera});
      GiveAll(MakeFrames(VideoProvider(camera), Now(), 40, Times(6, "IPB"), 300));
      Tick(5 * 60'000);
      Finish();
      ASSERT_EQ(OpenDescriptors(), usual) << n;
    }
  }
}

TEST_F(SearchTest, DescriptorsComeBackAfterSearches) {
  const auto camera = Camera();
  Start();
  Stop();
  const auto usual = OpenDescriptors();
  Record(camera, MakeFrames(VideoProvider(camera), Now(), 40, Times(20, "IPB"), 300));
  const std::string name = tree.FilesEndingIn(".ps").at(0);
  const std::string media = tree.Read(name);
  const Ask ask = Ask{1, 0, 0x7FFFFFFF}.Video(camera);
  const auto play = [&](int cancelAt = 0) { (void)Search(ask, cancelAt); };
  for (int cancelAt = 0; cancelAt < 10; ++cancelAt) play(cancelAt);
  for (const std::size_t size : {media.size() - 1, media.size() / 2, std::size_t{100}}) {
    tree.Write(name, media.substr(0, size));
    play();
  }
  tree.Write(name + "i", "no index");
  play();
  boost::filesystem::remove(tree.Path(name + "i"));
  play();
  boost::filesystem::remove(tree.Path(name));
  play();
  Stop();
  EXPECT_EQ(OpenDescriptors(), usual);
}

TEST_F(Limits, LongMessagesCostBoundedMemoryAndTime) {
  Start();
  const auto memory = HighWaterMiB();
  const auto begin = std::chrono::steady_clock::now();
  for (const auto& message : HostileMessages()) {
    if (message.text.size() < 100'000) continue;
    for (int n = 0; n < 3; ++n) host->Ioctl(KELVO_IOCTL_CONFIGURATION, message.text);
    Sync();
  }
  EXPECT_LT(HighWaterMiB() - memory, 300 * kSlack);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10 * kSlack));
}

TEST_F(Limits, TenThousandDevicesWithFewDescriptors) {
  const auto camera = Camera();
  Start();
  Configure({camera});
  const auto memory = HighWaterMiB();
  const auto begin = std::chrono::steady_clock::now();
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
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20 * kSlack));
  auto wanted = first;
  wanted.insert(wanted.end(), second.begin(), second.begin() + 3);
  ExpectFrames(FramesOf(RecordingsOf(camera, PsEnd::Unclosed), kVideoSlot), wanted);
}

}  // namespace
}  // namespace plugintest
