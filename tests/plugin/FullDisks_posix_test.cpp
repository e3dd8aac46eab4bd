// Recording onto file systems that are really full: two small ones in memory.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <mutex>

#include "hostkit/StorageXml.h"
#include "media/RecordPath.h"
#include "tests/plugin/PluginFixture.h"
#include "tests/plugin/seams/TestPlatform.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kSecond = 1000, kStep = 300 * kSecond, kDay = 86'400 * kSecond;
constexpr std::int64_t kNow = 1'750'003'200'000;
// What is free is told in whole GiB, and one must stay: little more is ever recorded on.
constexpr char kVolumeSize[] = "size=1120m";
constexpr off_t kOldSize = off_t{1} << 20;
constexpr std::size_t kFrameSize = 80 << 10;
constexpr int kCameras = 2;
// A key frame's fate is open until two more have come and another one after them.
constexpr std::size_t kUndecided = 3;

std::uint64_t AvailableMemory() {
  std::ifstream info("/proc/meminfo");
  std::string name, unit;
  for (std::uint64_t value = 0; info >> name >> value >> unit;) {
    if (name == "MemAvailable:") return value << 10;
  }
  return 0;
}

std::uint64_t FreeBytes(const std::string& path) {
  struct statvfs space {};
  EXPECT_EQ(statvfs(path.c_str(), &space), 0);
  return std::uint64_t{space.f_bavail} * space.f_frsize;
}

// The plug-in on the system's own drives and files, by the test's clock. Payloads aren't kept in
// quarantine: they would fill the memory.
class FullDisks : public PluginTest {
 protected:
  FullDisks() : PluginTest(KELVO_SEAMS_PLUGIN) {
    host->SetQuarantine(false);
    reinterpret_cast<KelvoTestPlatformFunction>(host->Symbol("KelvoTestPlatform"))(&platform);
    host->onRelease = [this](const std::byte* buffer) {
      if (buffer != marker.load()) return;
      const std::lock_guard guard(lock);
      reached = true;
      changed.notify_all();
    };
  }

  void SetUp() override {
    constexpr std::uint64_t kNeeded = std::uint64_t{1} << 29;
    if (AvailableMemory() < kNeeded) GTEST_SKIP() << "too little memory for two full volumes";
    for (const char* name : {"a", "b"}) {
      const std::string path = tree.MakeDirectory(std::string("drives/") + name);
      if (mount("kelvotest", path.c_str(), "tmpfs", 0, kVolumeSize) != 0) {
        GTEST_SKIP() << "file systems can't be mounted here: " << std::strerror(errno);
      }
      mounted.push_back(path);
    }
    clock.SetNow(kNow);
  }

  void TearDown() override {
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
    for (std::int64_t time = first;; time += step) {
      bool full = true;
      for (const auto& volume : mounted) {
        if (FreeBytes(volume) < std::uint64_t{1} << 30) continue;
        full = false;
        const auto path = qv::kelvo::MakePath(volume, time, hostkit::VideoProvider(Camera()) | 0x80,
                                              qv::kelvo::CreateDirectories::Yes);
        old.push_back({time, path});
        const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_EXCL, 0644);
        EXPECT_EQ(posix_fallocate(file, 0, kOldSize), 0);
        close(file);
        std::ofstream(path + 'i') << "index";
      }
      if (full) return old;
    }
  }

  // Returns when everything given so far has been handled, with the work after it.
  void Handled() {
    for (int i = 0; i < 2; ++i) {
      reached = false;
      KelvoWriteBlock block{};
      KelvoWriteReply reply{};
      block.Payload = host->NewBuffer("<qDVR/>");
      block.Length = 7;
      marker = static_cast<const std::byte*>(block.Payload);
      host->Raw().Write(&block, &reply);
      ASSERT_EQ(reply.Accepted, 1u);
      std::unique_lock guard(lock);
      ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(60), [this] { return reached; }));
    }
  }

  void Send(const std::string& xml) {
    ASSERT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, xml));
    Handled();
  }

  // Five minutes of all cameras: a key frame each.
  void GiveStep() {
    for (const auto& camera : cameras) {
      Give(MakeFrame(VideoProvider(camera), KELVO_FRAME_I, clock.NowMs(), kFrameSize, given++));
      times[camera.device].push_back(clock.NowMs());
    }
    clock.Advance(kStep);
    Handled();
  }

  // Times of the frames in a camera's new recordings, in the order of the files.
  std::vector<std::int64_t> Recorded(const CameraConfig& camera) {
    char id[16];
    std::snprintf(id, sizeof id, "-%08X", hostkit::VideoProvider(camera) | 0x80u);
    std::vector<std::pair<std::string, std::string>> byTime;
    for (const auto& file : tree.FilesEndingIn(".ps")) {
      const auto path = tree.Path(file);
      if (file.find(id) == std::string::npos || fs::file_size(path) == std::uint64_t{kOldSize}) {
        continue;
      }
      byTime.emplace_back(file.substr(std::string("drives/a").size()), path);
    }
    std::sort(byTime.begin(), byTime.end());
    std::vector<std::int64_t> found;
    for (const auto& [name, path] : byTime) {
      const auto recording = testsupport::ReadPs(path);
      for (const auto& fault : recording.faults) ADD_FAILURE() << path << ": " << fault;
      for (const auto* frame : recording.Of(kVideoSlot)) found.push_back(frame->timeMs);
    }
    return found;
  }

  int CountEvents(const std::string& text) {
    for (auto& event : host->TakeEvents()) events.push_back(std::move(event.xml));
    return static_cast<int>(std::count_if(events.begin(), events.end(), [&](const auto& xml) {
      return xml.find(text) != std::string::npos;
    }));
  }

  qv::kelvo::ManualClock clock;
  qv::kelvo::Platform platform{
      clock, qv::kelvo::SystemPlatform().drives, qv::kelvo::SystemPlatform().directories,
      qv::kelvo::SystemPlatform().mediaFiles, qv::kelvo::SystemPlatform().durableFiles};
  std::vector<std::string> mounted;
  std::vector<CameraConfig> cameras;
  std::map<int, std::vector<std::int64_t>> times;  // of the frames given, by device
  std::uint32_t given = 0;
  std::vector<std::string> events;

 private:
  std::atomic<const std::byte*> marker{nullptr};
  std::mutex lock;
  std::condition_variable changed;
  bool reached = false;
};

TEST_F(FullDisks, WeekOfRecordingLosesNoFrameAndTouchesNoBookmark) {
  for (int i = 0; i < kCameras; ++i) cameras.push_back(Camera(i));
  const std::int64_t start = kNow - 20 * kDay, end = start + 8 * 3600 * kSecond;
  std::vector<std::string> marked, free;
  for (const auto& old : Fill(start, 4 * kStep)) {
    (old.time < end + 120 * kSecond ? marked : free).push_back(old.path);
  }
  ASSERT_GT(free.size(), 100u);
  ASSERT_GT(marked.size(), 40u);
  Start();
  const std::vector<hostkit::Bookmark> bookmarks = {
      {"case", "mark", start / 1000, end / 1000, {cameras[0]}}};
  Send(hostkit::WithBookmarks("<qDVR/>", bookmarks));
  Send(hostkit::FullConfiguration(cameras));
  for (int step = 0; step < 7 * 288; ++step) {
    GiveStep();
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(CountLog("could not get record volume"), 0);
  EXPECT_EQ(CountLog("write error"), 0);
  EXPECT_EQ(CountEvents("Recording Not Possible"), 0);
  Finish();

  for (const auto& path : marked) EXPECT_TRUE(fs::exists(path) && fs::exists(path + 'i')) << path;
  for (const auto& path : free) EXPECT_FALSE(fs::exists(path)) << path;
  for (const auto& camera : cameras) {
    // What is left is the end of what was given, without a gap; the last frames were undecided.
    const auto found = Recorded(camera);
    auto& all = times[camera.device];
    ASSERT_LT(found.size(), all.size()) << "the volumes were to be recorded over";
    ASSERT_GT(found.size(), all.size() / 4);
    while (all.back() > found.back()) all.pop_back();
    EXPECT_GE(all.size() + kUndecided, 7u * 288);
    EXPECT_TRUE(std::equal(found.rbegin(), found.rend(), all.rbegin()));
  }
}

TEST_F(FullDisks, WhereAllIsProtectedThatIsToldOnceUntilRoomReturns) {
  for (int i = 0; i < kCameras; ++i) cameras.push_back(Camera(i));
  const auto old = Fill(kNow - 2 * kDay, 10 * kStep);
  hostkit::StorageSettings settings;
  settings.expirationDays = 30;
  Start();
  Send(hostkit::StorageDelta(settings));
  Send(hostkit::FullConfiguration(cameras));
  for (int step = 0; step < 20; ++step) GiveStep();
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1);
  EXPECT_EQ(CountLog("could not get record volume"), kCameras);
  for (const auto& [time, path] : old) EXPECT_TRUE(fs::exists(path));

  constexpr std::uint32_t kFrames = 4000;
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint32_t i = 0; i < kFrames; ++i) {
    Give(MakeFrame(VideoProvider(cameras[i % kCameras]), KELVO_FRAME_I, clock.NowMs() - kStep + i,
                   2000, i));
  }
  Handled();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(kFrames / took.count(), 2000);

  const int healthy = CountEvents("Healthy");
  settings.expirationDays = 0;
  Send(hostkit::StorageDelta(settings));
  times.clear();
  for (int step = 0; step < 5; ++step) GiveStep();
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1);
  EXPECT_GT(CountEvents("Healthy"), healthy);
  EXPECT_EQ(CountLog("got a record volume"), kCameras);
  Finish();
  EXPECT_FALSE(fs::exists(old.front().path));
  EXPECT_TRUE(fs::exists(old.back().path));
  for (const auto& camera : cameras) {
    auto found = Recorded(camera);
    std::erase_if(found, [&](std::int64_t time) { return time < times[camera.device].front(); });
    const auto& all = times[camera.device];
    ASSERT_GE(found.size() + kUndecided, all.size());
    ASSERT_LE(found.size(), all.size());
    EXPECT_TRUE(std::equal(found.begin(), found.end(), all.begin()));
  }
}

}  // namespace
}  // namespace plugintest
