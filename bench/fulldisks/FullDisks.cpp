// Recording onto file systems that are really full: two small ones in memory.
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "hostkit/StorageXml.h"
#include "tests/plugin/PluginFixture.h"
#include "tree/RecordPath.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kSecond = 1000, kStep = 300 * kSecond, kDay = 86'400 * kSecond;
constexpr std::int64_t kNow = 1'750'003'200'000;
// What is free is told in whole GiB, and one must stay: little more is ever recorded on.
constexpr char kVolumeSize[] = "size=1120m";
// A key frame's fate is open until two more have come and another one after them.
constexpr int kUndecided = 3;

std::uint64_t AvailableMemory() {
  std::ifstream info("/proc/meminfo");
  std::string name, unit;
  for (std::uint64_t value = 0; info >> name >> value >> unit;) {
    if (name == "MemAvailable:") return value << 10;
  }
  return 0;
}

// The plug-in on the system's own drives, by the test's clock.
class FullDisks : public SeamTest {
 protected:
  FullDisks() : SeamTest(&qv::kelvo::SystemPlatform().drives) {}

  void SetUp() override {
    if (AvailableMemory() < 1u << 29) GTEST_SKIP() << "too little memory for two full volumes";
    for (const char* name : {"drives/a", "drives/b"}) {
      const std::string path = tree.MakeDirectory(name);
      if (mount("kelvotest", path.c_str(), "tmpfs", 0, kVolumeSize) != 0) {
        GTEST_SKIP() << "file systems can't be mounted here: " << std::strerror(errno);
      }
      mounted.push_back(path);
    }
    // Not on the hour: a file of the last five minutes before one would lose its cleanup's respite
    // in the moment in which it ends, and nothing here waits for the worker to end it first.
    bundle.clock.SetNow(kNow + kStep / 10);
    picture = host->NewBuffer(std::string(80 << 10, 'p'));
  }

  void TearDown() override {
    Stop();
    if (picture != nullptr) host->Release(picture);
    PluginTest::TearDown();
    for (const auto& path : mounted) EXPECT_EQ(umount(path.c_str()), 0) << std::strerror(errno);
  }

  struct Old {
    std::int64_t time;
    std::string path;
  };
  // Old recordings with their indexes on all volumes, `step` apart, until none has room any more.
  std::vector<Old> Fill(std::int64_t first, std::int64_t step) {
    std::vector<Old> old;
    const std::string content(1 << 20, 'o');
    for (bool full = false; !full; first += step) {
      full = true;
      for (const auto& volume : mounted) {
        if (fs::space(volume).available < 1u << 30) continue;
        full = false;
        const auto path = qv::kelvo::MakePath(volume, first, hostkit::VideoProvider(earlier) | 0x80,
                                              qv::kelvo::CreateDirectories::Yes);
        std::ofstream(path) << content;
        std::ofstream(path + 'i') << "index";
        old.push_back({first, path});
      }
    }
    return old;
  }

  // Five minutes of all cameras: a key frame each, always the same picture.
  void GiveStep(std::int64_t count = 1) {
    for (std::int64_t i = 0; i < count; ++i) {
      for (const auto& camera : cameras) {
        const auto frame = MakeFrame(VideoProvider(camera), KELVO_FRAME_I, Now() + i, 0, 0);
        host->AddReference(picture);
        ASSERT_TRUE(host->WriteFrame(frame.provider, frame.header, picture, 80 << 10));
      }
    }
    times.push_back(Now());
    bundle.clock.Advance(kStep);
    Sync();
  }

  // Times of the frames in a camera's recordings, ascending.
  std::vector<std::int64_t> Recorded(const CameraConfig& camera) {
    std::vector<std::int64_t> found;
    for (const auto& recording : Recordings(Id(camera))) {
      for (const auto* frame : recording.Of(kVideoSlot)) found.push_back(frame->timeMs);
    }
    std::ranges::sort(found);
    return found;
  }

  const CameraConfig earlier = Camera(2);
  const std::vector<CameraConfig> cameras = {Camera(0), Camera(1)};
  std::vector<std::string> mounted;
  std::byte* picture = nullptr;
  std::vector<std::int64_t> times;  // of the frames given
};

TEST_F(FullDisks, WeekOfRecordingLosesNoFrameAndTouchesNoBookmark) {
  const std::int64_t start = kNow - 20 * kDay, end = start + 8 * 3600 * kSecond;
  std::vector<std::string> marked, free;
  for (const auto& old : Fill(start, 4 * kStep)) {
    (old.time < end + 120 * kSecond ? marked : free).push_back(old.path);
  }
  ASSERT_GT(free.size(), 100u);
  ASSERT_GT(marked.size(), 40u);
  Start();
  Tell(hostkit::WithBookmarks("<qDVR/>", {{"case", "mark", start / 1000, end / 1000, {earlier}}}));
  Configure(cameras);
  for (int step = 0; step < 7 * 288 && !HasFatalFailure(); ++step) GiveStep();
  EXPECT_EQ(CountLog("could not get record volume"), 0);
  EXPECT_EQ(CountLog("write error"), 0);
  EXPECT_EQ(CountEvents("Recording Not Possible"), 0);
  Finish();

  for (const auto& path : marked) EXPECT_TRUE(fs::exists(path) && fs::exists(path + 'i')) << path;
  for (const auto& path : free) EXPECT_FALSE(fs::exists(path)) << path;
  for (const auto& camera : cameras) {
    // What is left is the end of what was given, without a gap; the last frames were undecided.
    const auto found = Recorded(camera);
    ASSERT_LT(found.size(), times.size()) << "the volumes were to be recorded over";
    ASSERT_GT(found.size(), times.size() / 4);
    const auto last = std::ranges::find(times, found.back());
    ASSERT_NE(last, times.end());
    EXPECT_LE(times.end() - last, kUndecided + 1);
    EXPECT_TRUE(std::equal(found.rbegin(), found.rend(), std::make_reverse_iterator(last + 1)));
  }
}

TEST_F(FullDisks, WhereAllIsProtectedThatIsToldOnceUntilRoomReturns) {
  const auto old = Fill(kNow - 2 * kDay, 10 * kStep);
  hostkit::StorageSettings settings;
  settings.expirationDays = 30;
  Start();
  Tell(hostkit::StorageDelta(settings));
  Configure(cameras);
  for (int step = 0; step < 20; ++step) GiveStep();
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1);
  EXPECT_EQ(CountLog("could not get record volume"), 2);
  for (const auto& [time, path] : old) EXPECT_TRUE(fs::exists(path));

  const auto begin = std::chrono::steady_clock::now();
  GiveStep(2000);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));

  const int healthy = CountEvents("Healthy");
  settings.expirationDays = 0;
  Tell(hostkit::StorageDelta(settings));
  times.clear();
  for (int step = 0; step < 5; ++step) GiveStep();
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1);
  EXPECT_GT(CountEvents("Healthy"), healthy);
  EXPECT_EQ(CountLog("got a record volume"), 2);
  Finish();
  EXPECT_FALSE(fs::exists(old.front().path));
  EXPECT_TRUE(fs::exists(old.back().path));
  for (const auto& camera : cameras) {
    auto found = Recorded(camera);
    std::erase_if(found, [&](std::int64_t time) { return time < times.front(); });
    ASSERT_GE(found.size() + kUndecided, times.size());
    ASSERT_LE(found.size(), times.size());
    EXPECT_TRUE(std::equal(found.begin(), found.end(), times.begin()));
  }
}

}  // namespace
}  // namespace plugintest
