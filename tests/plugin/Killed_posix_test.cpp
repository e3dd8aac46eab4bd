#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <random>

#include "tests/plugin/PluginFixture.h"
#include "tests/plugin/seams/TestPlatform.h"

// A recorder dies by SIGKILL; what it left is compared with what it was given.
namespace plugintest {
namespace {

// Sanitizers slow a start down several times, and see nothing in files.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 40;
#else
constexpr int kRounds = 200;
#endif
constexpr std::uint32_t kCameras = 4;
constexpr std::uint32_t kGroup = 5;  // frames
constexpr std::int64_t kStart = 1'750'000'000'000;

// What outlives the recorder: how many frames each camera was given, and how many of them the
// plug-in has released, one after the other.
struct Counts {
  std::array<std::atomic<std::uint32_t>, kCameras> given{}, released{};
  std::atomic<std::uint32_t> allReleased{0};
  std::atomic<bool> disorder{false};
};

// A camera's n-th frame; camera and number stand in front. Some are larger than a page.
Frame NthFrame(std::uint32_t camera, std::uint32_t n) {
  static constexpr std::uint8_t kTypes[] = {KELVO_FRAME_I, KELVO_FRAME_B, KELVO_FRAME_P};
  const auto size = n % 7 == 0 ? 20'000 + n % 100 : 500 + n % 64;
  auto frame = MakeFrame(hostkit::VideoProvider(Camera(static_cast<int>(camera))),
                         kTypes[n % kGroup == 0 ? 0 : 1 + n % 2], kStart + n * 40, size, n);
  std::memcpy(&frame.payload[0], &camera, sizeof camera);
  std::memcpy(&frame.payload[4], &n, sizeof n);
  return frame;
}

class KilledRecorder : public ::testing::Test {
 protected:
  ~KilledRecorder() override { munmap(shared, sizeof(Counts)); }

  // Records as fast as it can until it is killed. With seams it kills itself before that call to a
  // media file.
  [[noreturn]] void RunRecorder(const char* module, std::size_t lastCall) {
    SimHost host(module);
    host.onLog = [](const auto&) {};
    host.onEvent = [](const auto&) {};
    host.onRelease = [this](const std::byte* payload) {
      std::uint32_t about[2];
      std::memcpy(about, payload, sizeof about);
      if (about[0] >= kCameras) return;  // XML
      if (counts->released[about[0]]++ != about[1]) counts->disorder = true;
      ++counts->allReleased;
    };
    qv::kelvo::TestBundle bundle;
    if (lastCall != 0) {
      bundle.clock.SetNow(kStart);
      bundle.drives.Add(drive);
      bundle.files.before = [calls = std::size_t{0}, lastCall](auto, const auto&) mutable {
        if (++calls == lastCall) raise(SIGKILL);
      };
      reinterpret_cast<KelvoTestPlatformFunction>(host.Symbol("KelvoTestPlatform"))(
          &bundle.platform);
    }
    host.Load();
    host.Open();
    host.Ioctl(KELVO_IOCTL_CONFIGURATION,
               hostkit::FullConfiguration({Camera(0), Camera(1), Camera(2), Camera(3)}));
    for (std::uint32_t n = 0;; ++n) {
      for (std::uint32_t camera = 0; camera < kCameras; ++camera) {
        const auto frame = NthFrame(camera, n);
        ++counts->given[camera];
        host.WriteFrame(frame.provider, frame.header, host.NewBuffer(frame.payload),
                        static_cast<std::uint32_t>(frame.payload.size()));
      }
      host.WaitOutstanding(200);
    }
  }

  // Lets a recorder run, kills it if `kill` tells to, and looks at what it left.
  template <class Kill>
  void Round(const char* module, std::size_t lastCall, Kill kill) {
    new (counts) Counts;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      alarm(60);
      if (chdir(tree.Root().c_str()) == 0) RunRecorder(module, lastCall);
      _exit(127);
    }
    kill(child);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_FALSE(counts->disorder);
    for (std::uint32_t camera = 0; camera < kCameras; ++camera) {
      SCOPED_TRACE("camera " + std::to_string(camera));
      CheckCamera(camera);
    }
    boost::filesystem::remove_all(drive);
    tree.MakeDirectory("drives/a");
  }

  void CheckCamera(std::uint32_t camera) {
    const std::uint32_t released = counts->released[camera];
    std::uint32_t found = 0;
    const std::string id = Id(Camera(static_cast<int>(camera)));
    for (const auto& file : tree.FilesEndingIn(id + ".ps")) {
      const auto recording = testsupport::ReadPs(tree.Path(file), PsEnd::Unclosed);
      for (const auto& fault : recording.faults) ADD_FAILURE() << file << ": " << fault;
      for (const auto& frame : recording.frames) {
        const Frame given = NthFrame(camera, found++);
        ExpectFrames({&frame}, {&given, 1});
      }
      // What was being written can't have been released.
      if (recording.lastFrameCut) cutFrames += recording.cutRecords + 1;
    }
    // All that was released is there; the group that was being written may be.
    EXPECT_GE(found, released);
    EXPECT_LE(found, released + kGroup);
    EXPECT_LE(found, counts->given[camera]);
    foundFrames += found;
  }

  qv::kelvo::TempTree tree;
  const std::string drive = tree.MakeDirectory("drives/a");
  void* const shared =
      mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Counts* const counts = static_cast<Counts*>(shared);
  std::uint64_t foundFrames = 0, cutFrames = 0;
};

TEST_F(KilledRecorder, AtAnyMomentLosesOnlyWhatItWasWriting) {
  std::mt19937 random(20261121);
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Round(KELVO_PLUGIN, 0, [&](pid_t child) {
      const auto enough = random() % 1200;
      for (int i = 0; i < 500'000 && counts->allReleased < enough; ++i) usleep(20);
      for (auto spin = random() % 100'000; spin > 0; --spin) {
        asm volatile("");  // some more time, that no event marks
      }
      EXPECT_EQ(kill(child, SIGKILL), 0);
    });
  }
  EXPECT_GT(foundFrames, kRounds * 200u);
}

TEST_F(KilledRecorder, BetweenAnyTwoFileCallsLosesOnlyWhatItWasWriting) {
  for (std::size_t call = 1; call <= 60 && !HasFailure(); ++call) {
    SCOPED_TRACE("before call " + std::to_string(call));
    Round(KELVO_SEAMS_PLUGIN, call, [](pid_t) {});
  }
  EXPECT_GT(foundFrames, 20u);
  EXPECT_GT(cutFrames, 5u);
}

}  // namespace
}  // namespace plugintest
