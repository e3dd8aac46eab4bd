// Everything that touches one tree at once: recording and making room, the sweep with its cleanup,
// searches and playback. Meant for the thread sanitizer; what must hold anyway is checked.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

#include "hostkit/StorageXml.h"
#include "tests/plugin/SearchFixture.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kMinute = 60'000, kHour = 60 * kMinute, kDay = 24 * kHour;
constexpr std::int64_t kNow = 1'750'003'200'000;
constexpr std::uint64_t kCapacityGB = 100;
constexpr int kOldSteps = 90, kSteps = 60, kSearchers = 4;

// Drives on which each recording takes a gigabyte.
class SmallDrives : public qv::kelvo::FakeDrives {
 public:
  std::string Space(const std::string& path, qv::kelvo::DriveSpace& space) override {
    std::uint64_t used = 0;
    boost::system::error_code error;
    fs::recursive_directory_iterator at(path, error), end;
    for (; !error && at != end; at.increment(error)) used += at->path().extension() == ".ps";
    const std::uint64_t free = (kCapacityGB - std::min(used, kCapacityGB)) << 30;
    space = {kCapacityGB << 30, free, free};
    return {};
  }
};

class OneTree : public SeamTest {
 protected:
  // Faulty files would put the threads in order by their lock.
  OneTree() : SeamTest(&drives, &qv::kelvo::SystemPlatform().mediaFiles) {
    for (const char* name : {"drives/a", "drives/b"}) drives.Add(tree.MakeDirectory(name));
    host->onSearch = [this](const KelvoHostRequest& request) {
      if (request.SubCode != KELVO_SUB_SEARCH_PROGRESS) ++heard;
      if (request.SubCode == KELVO_SUB_SEARCH_FRAME && request.Length > 2) {
        EXPECT_EQ(static_cast<const char*>(request.Payload)[2], 1);
      }
      return 0u;
    };
  }

  // A little of both cameras, in files of their own.
  void RecordAt(std::int64_t time) {
    bundle.clock.SetNow(time);
    Sync();
    for (const auto& camera : cameras) {
      GiveAll(MakeFrames(VideoProvider(camera), time, 100, "IPPPIPPPIPPP", 500));
    }
    Sync();
  }

  const std::vector<CameraConfig> cameras = {Camera(0), Camera(1)};
  SmallDrives drives;
  std::atomic<std::uint64_t> heard{0};
};

TEST_F(OneTree, BearsRecordingSweepingAndSearchingAtOnce) {
  const std::int64_t marked = kNow - 10 * kDay;
  bundle.clock.SetNow(marked);
  Start();
  Tell(hostkit::WithBookmarks(
      hostkit::FullConfiguration(cameras),
      {{"case", "mark", marked / 1000, (marked + kHour) / 1000, {cameras[0]}}}));
  for (int i = 0; i < 8; ++i) RecordAt(marked + i * 6 * kMinute);
  const auto kept = tree.FilesEndingIn(Id(cameras[0]) + ".ps");
  EXPECT_EQ(kept.size(), 8u);
  for (int i = 0; i < kOldSteps; ++i) RecordAt(marked + kDay + i * 2 * kHour);
  for (const std::string name : {"drives/a/", "drives/b/"}) {  // debris for the cleanup
    tree.Write(name + "2025/06/01/00/0000-00110080.psi", "alone");
    tree.Write(name + "2025/06/01/01/0000-00110080.ps", "");
  }
  bundle.clock.SetNow(kNow);
  hostkit::StorageSettings settings;
  settings.expirationDays = -6;  // the sweep and making room meet in the same hours
  Tell(hostkit::StorageDelta(settings));

  std::atomic<bool> done{false};
  std::vector<std::thread> searchers;
  for (int i = 0; i < kSearchers; ++i) {
    searchers.emplace_back([this, &done, i] {
      const auto ask = Ask(i % 2, (kNow - 11 * kDay) / 1000, (kNow + 3 * kDay) / 1000, cameras);
      while (!done) host->Read(ask, static_cast<std::uint32_t>(i) + 1);
    });
  }
  for (int step = 0; step < kSteps; ++step) {
    for (const auto& camera : cameras) {
      GiveAll(MakeFrames(VideoProvider(camera), Now(), 100, "IPPPIPPP", 500));
    }
    if (step % 10 == 0) Configure(cameras);  // ends all files
    if (step % 10 == 5) {
      // Settings that all of them read, or that end a sweep on its way.
      settings.contentAgeSeconds = step;
      Tell(hostkit::StorageDelta(settings));
    }
    Tick(20 * kMinute);
  }
  Tick(kHour);  // for a sweep that nothing ends on its way any more
  EXPECT_TRUE(host->WaitForLine("Sweeper - completed"));
  EXPECT_TRUE(host->WaitForLine("fs-cleanup - orphan file"));
  done = true;
  for (auto& searcher : searchers) searcher.join();
  EXPECT_GT(heard, 0u);
  EXPECT_GT(CountLog("GRV rm: "), 0);
  EXPECT_GT(CountLog("Sweeper - expiring " + tree.Root()), 0);
  EXPECT_EQ(CountLog("could not get record volume"), 0);
  for (const auto& name : kept) {
    EXPECT_TRUE(fs::exists(tree.Path(name)) && fs::exists(tree.Path(name + 'i'))) << name;
  }
}

// A plug-in that a host stops and takes away at any moment, whatever it is doing. KELVO_CYCLES asks
// for more of them.
class AnyMoment : public PluginTest {
 protected:
  // Waits some microseconds, so that what follows meets the rest at ever other points.
  void Pause(int limit) {
    const auto until = std::chrono::steady_clock::now() +
                       std::chrono::microseconds(random() % static_cast<unsigned>(limit));
    while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
  }
  // Calls until the test ends; a call finds the plug-in there or not.
  void Run(const std::function<void(int)>& call) {
    threads.emplace_back([this, call] {
      for (int n = 0; !done; ++n) call(n);
    });
  }

  std::mt19937 random{1};
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
};

TEST_F(AnyMoment, CloseAndUnloadLeaveNothingBehind) {
  const char* asked = std::getenv("KELVO_CYCLES");
  const int cycles = asked != nullptr ? std::atoi(asked) : 40;
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 40, Times(25, "IPBPB"), 300);
  const auto configuration = hostkit::FullConfiguration({camera});
  const auto request = Ask(1, NowMs() / 1000 - 60, NowMs() / 1000 + 3600, {camera});
  std::atomic<std::uint64_t> accepted{0}, heard{0}, logged{0};
  host->SetQuarantine(false);
  host->onLog = [&](const SimHost::LogLine&) { ++logged; };
  host->onEvent = [](const SimHost::Event&) {};
  host->onSearch = [&](const KelvoHostRequest&) {
    ++heard;
    return 0u;
  };
  for (int t = 0; t < 3; ++t) {
    Run([&](int n) {
      if (Give(frames[static_cast<std::size_t>(n) % frames.size()])) ++accepted;
      if (n % 64 == 0) host->WaitOutstanding(2000, 1000);
    });
  }
  Run([&](int) {
    host->Ioctl(KELVO_IOCTL_CONFIGURATION, configuration);
    host->WriteXml(KELVO_WRITE_PTZ, hostkit::PtzMessage(camera, 17));
    host->WaitOutstanding(50, 1000);
  });
  for (std::uint32_t t = 1; t <= 2; ++t) Run([&, t](int) { host->Read(request, t); });
  for (int cycle = 0; cycle < cycles; ++cycle) {
    host->Load();
    if (random() % 8 != 0) host->Open();
    Pause(random() % 4 == 0 ? 30'000 : 2'000);
    if (random() % 2 == 0) host->Close();
    Pause(1'000);
    if (random() % 8 != 0) host->Unload();  // otherwise the next Load does
  }
  host->Unload();
  done = true;
  for (auto& thread : threads) thread.join();
  EXPECT_GT(accepted, 0u);
  EXPECT_GT(heard, 0u);
  EXPECT_GT(logged, 0u);
}

}  // namespace
}  // namespace plugintest
