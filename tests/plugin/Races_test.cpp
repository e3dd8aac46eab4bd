// Everything that touches one tree at once: recording and making room, the sweep with its cleanup,
// searches and playback. Meant for the thread sanitizer; what must hold anyway is checked.
#include <array>
#include <atomic>
#include <thread>

#include "hostkit/StorageXml.h"
#include "media/PSFile.h"
#include "media/RecordPath.h"
#include "tests/plugin/SearchFixture.h"
#include "tests/plugin/seams/TestPlatform.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kMinute = 60'000, kHour = 60 * kMinute, kDay = 24 * kHour;
constexpr std::int64_t kNow = 1'750'003'200'000;
constexpr std::uint64_t kCapacityGB = 100;
constexpr int kPlanted = 90;  // on each of two drives
constexpr int kSteps = 60, kSearchers = 4;

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

class OneTree : public PluginTest {
 protected:
  OneTree() : PluginTest(KELVO_SEAMS_PLUGIN) {
    for (const char* name : {"drives/a", "drives/b"}) drives.Add(tree.MakeDirectory(name));
    reinterpret_cast<KelvoTestPlatformFunction>(host->Symbol("KelvoTestPlatform"))(&platform);
    host->onSearch = [this](const KelvoHostRequest& request) {
      if (request.SubCode != KELVO_SUB_SEARCH_PROGRESS) ++heard;
      if (request.SubCode == KELVO_SUB_SEARCH_FRAME && request.Length > 2) {
        EXPECT_EQ(static_cast<const char*>(request.Payload)[2], 1);
      }
      return 0u;
    };
  }

  // A recording with a few frames; returns its path.
  std::string Plant(const std::string& drive, std::int64_t time, const CameraConfig& camera) {
    const auto path = qv::kelvo::MakePath(drive, time, hostkit::VideoProvider(camera) | 0x80,
                                          qv::kelvo::CreateDirectories::Yes);
    qv::kelvo::PSFile file(platform.mediaFiles);
    std::array<qv::kelvo::PsStreamDescriptor, qv::kelvo::kStreamCount> descriptors;
    descriptors[0].streamType = 130;
    descriptors[0].streamId = 0xE0;
    EXPECT_EQ(file.Create(path, {}, descriptors, 0), 0);
    const std::array<std::byte, 900> payload{};
    for (int i = 0; i < 5; ++i) {
      qv::kelvo::PSFrame frame;
      frame.frameType = i == 0 ? 1 : 2;
      frame.payload = payload.data();
      frame.payloadSize = payload.size();
      frame.SetTime(time + i * 1000);
      EXPECT_EQ(file.WriteFrame(frame), 0);
    }
    file.Close();
    return path;
  }

  SmallDrives drives;
  qv::kelvo::ManualClock clock{kNow};
  qv::kelvo::Platform platform{clock, drives, qv::kelvo::SystemPlatform().directories,
                               qv::kelvo::SystemPlatform().mediaFiles,
                               qv::kelvo::SystemPlatform().durableFiles};
  std::atomic<std::uint64_t> heard{0};
};

TEST_F(OneTree, BearsRecordingSweepingAndSearchingAtOnce) {
  const std::vector<CameraConfig> cameras = {Camera(0), Camera(1)};
  const std::int64_t marked = kNow - 10 * kDay;
  std::vector<std::string> kept;
  for (const char* name : {"drives/a/", "drives/b/"}) {
    const auto drive = tree.Path(name);
    for (int i = 0; i < kPlanted; ++i) {
      Plant(drive, marked + kDay + i * 2 * kHour, cameras[static_cast<std::size_t>(i) % 2]);
    }
    for (int i = 0; i < 8; ++i) kept.push_back(Plant(drive, marked + i * kMinute, cameras[0]));
    // Debris for the cleanup.
    tree.Write(std::string(name) + "2025/06/01/00/0000-00110080.psi", "alone");
    tree.Write(std::string(name) + "2025/06/01/01/0000-00110080.ps", "");
  }
  Start();
  ASSERT_TRUE(
      host->Ioctl(KELVO_IOCTL_CONFIGURATION,
                  hostkit::WithBookmarks(
                      hostkit::FullConfiguration(cameras),
                      {{"case", "mark", marked / 1000, (marked + kHour) / 1000, {cameras[0]}}})));
  hostkit::StorageSettings settings;
  settings.expirationDays = -6;  // the sweep and making room meet in the same hours
  ASSERT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::StorageDelta(settings)));
  Sync();

  std::atomic<bool> done{false};
  std::vector<std::thread> searchers;
  for (int i = 0; i < kSearchers; ++i) {
    searchers.emplace_back([this, &done, &cameras, i] {
      auto ask = Ask{i % 2, (kNow - 11 * kDay) / 1000, (kNow + 3 * kDay) / 1000};
      for (const auto& camera : cameras) ask.Video(camera);
      while (!done) host->Read(ask.Xml(), static_cast<std::uint32_t>(i) + 1);
    });
  }
  for (int step = 0; step < kSteps; ++step) {
    for (const auto& camera : cameras) {
      GiveAll(MakeFrames(VideoProvider(camera), clock.NowMs(), 100, "IPPPIPPP", 500));
    }
    // Ends all files.
    if (step % 10 == 0) {
      EXPECT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration(cameras)));
    }
    // Settings that all of them read, or that end a sweep on its way.
    if (step % 10 == 5) {
      settings.contentAgeSeconds = step;
      EXPECT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::StorageDelta(settings)));
    }
    Sync();
    clock.Advance(20 * kMinute);
    Sync();
  }
  // A sweep that nothing ends on its way any more.
  clock.Advance(kHour);
  Sync();
  EXPECT_TRUE(host->WaitForLog("Sweeper - completed"));
  EXPECT_TRUE(host->WaitForLog("fs-cleanup - orphan file"));
  done = true;
  for (auto& searcher : searchers) searcher.join();
  EXPECT_GT(heard, 0u);
  EXPECT_GT(CountLog("GRV rm: "), 0);
  EXPECT_GT(CountLog("Sweeper - expiring " + tree.Root()), 0);
  EXPECT_EQ(CountLog("could not get record volume"), 0);
  for (const auto& path : kept) EXPECT_TRUE(fs::exists(path) && fs::exists(path + 'i')) << path;
}

}  // namespace
}  // namespace plugintest
