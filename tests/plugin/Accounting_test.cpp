#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/plugin/PluginFixture.h"

// The fixture checks after each test that every buffer was released exactly once.
namespace plugintest {
namespace {

using Accounting = PluginTest;

TEST_F(Accounting, KeptFramesAreAllInTheFile) {
  auto camera = Camera();
  camera.audio = true;
  Start();
  Configure({camera});
  const auto start = NowMs();
  const auto video = MakeFrames(VideoProvider(camera), start, 40, Times(20, "IPBPB"));
  const auto audio = MakeFrames(AudioProvider(camera), start, 40, Times(100, "A"), 160);
  for (std::size_t n = 0; n < video.size(); ++n) {
    Give(video[n]);
    Give(audio[n]);
  }
  // The next group settles the last one, and stays undecided itself.
  GiveAll(MakeFrames(VideoProvider(camera), start + 4000, 40, "IPP"));
  Finish();
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 1u);
  const auto& recording = recordings[0];
  ExpectFrames(recording.Of(kVideoSlot), video);
  ExpectFrames(recording.Of(kAudioSlot), audio);
  EXPECT_EQ(recording.fileInput, 0x80);
  EXPECT_EQ(recording.streams[kVideoSlot].type, camera.standard + 128);
  EXPECT_EQ(recording.streams[kVideoSlot].width16, camera.width / 16);
  EXPECT_EQ(recording.streams[kVideoSlot].height16, camera.height / 16);
  EXPECT_EQ(recording.streams[kVideoSlot].name, camera.name);
  EXPECT_EQ(recording.streams[kAudioSlot].type, camera.audioStandard + 144);
  EXPECT_EQ(recording.streams[kAudioSlot].sampleRate, camera.sampleRate);
  EXPECT_EQ(recording.streams[kAudioSlot].bufSizeSamples, camera.bufSizeSamples);
  ExpectNoTroubleInLog();
}

TEST_F(Accounting, UnwantedFramesLeaveNoFile) {
  const auto camera = Camera(0, kOnAlarm);
  Start();
  Configure({camera});
  GiveAll(MakeFrames(VideoProvider(camera), NowMs(), 40, Times(20, "IPB")));
  Finish();
  EXPECT_TRUE(Recordings().empty());
}

TEST_F(Accounting, FramesBeforeTheFirstKeyFrameAreNotWritten) {
  const auto camera = Camera();
  Start();
  Configure({camera});
  const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 40, "PBPIPPIPP");
  GiveAll(frames);
  Finish();
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 1u);
  ExpectFrames(recordings[0].Of(kVideoSlot), std::span(frames).subspan(3, 3));
}

TEST_F(Accounting, UnknownSourcesAreReported) {
  const auto camera = Camera();
  Start();
  Configure({camera});
  for (int n = 0; n < 3; ++n) Give(MakeFrame(0x00770000, KELVO_FRAME_I, NowMs(), 500, 1));
  Give(MakeFrame(0, KELVO_FRAME_I, NowMs(), 500, 1));
  // A camera of this stream, but a channel that it doesn't have; and audio that isn't configured.
  Give(MakeFrame(VideoProvider(camera) + 5, KELVO_FRAME_I, NowMs(), 500, 1));
  Give(MakeFrame(AudioProvider(camera), KELVO_FRAME_AUDIO, NowMs(), 500, 1));
  Sync();
  EXPECT_EQ(host->Outstanding(), 0);
  EXPECT_EQ(CountLog("write invalid provider ID 00770000!!!"), 3);
  EXPECT_EQ(CountLog("write invalid provider ID 00000000!!!"), 1);
  EXPECT_EQ(CountLog("write invalid provider ID"), 4);
  Finish();
  EXPECT_TRUE(Recordings().empty());
}

TEST_F(Accounting, WithoutDriveOneWarningAndNothingKept) {
  boost::filesystem::remove_all(tree.Path("drives"));
  Start();
  const auto camera = Camera();
  Configure({camera});
  GiveAll(MakeFrames(VideoProvider(camera), NowMs(), 40, Times(20, "IPB")));
  Sync();
  EXPECT_EQ(CountLog("could not get record volume"), 1);
  EXPECT_EQ(CountLog("psfile write error"), 0);
}

TEST_F(Accounting, CloseInFullFlight) {
  const auto camera = Camera();
  Start();
  Configure({camera});
  const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 1, Times(1000, "IPBPB"), 500);
  GiveAll(frames);
  host->Close();
  EXPECT_FALSE(Give(frames[0]));
  Stop();
  // What did reach the file is whole and in order.
  const auto recordings = RecordingsOf(camera);
  const auto found = FramesOf(recordings, kVideoSlot);
  ASSERT_LE(found.size(), frames.size());
  ExpectFrames(found, std::span(frames).first(found.size()));
}

// Holds the worker inside the host's log function, so that the queue can't move.
class Gate {
 public:
  void Pass() {
    std::unique_lock guard(lock);
    reached = true;
    changed.notify_all();
    changed.wait(guard, [&] { return open; });
  }
  void WaitReached() {
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return reached; });
  }
  void Open() {
    std::lock_guard guard(lock);
    open = true;
    changed.notify_all();
  }

 private:
  std::mutex lock;
  std::condition_variable changed;
  bool reached = false, open = false;
};

TEST_F(Accounting, QueueLeftAtUnloadIsReleased) {
  const auto camera = Camera();
  Gate gate;
  host->onLog = [&](const SimHost::LogLine& line) {
    if (line.text.find("skipping msg") != std::string::npos) gate.Pass();
  };
  Start();
  Configure({camera});
  host->WriteXml(KELVO_WRITE_ACTION, "<stay/>");
  gate.WaitReached();
  GiveAll(MakeFrames(VideoProvider(camera), NowMs(), 40, Times(10, "IPB"), 500));
  for (const std::uint32_t writeClass : {KELVO_WRITE_ACTION, KELVO_WRITE_PTZ, 0u}) {
    EXPECT_TRUE(host->WriteXml(writeClass, hostkit::PtzMessage(camera, 17)));
  }
  EXPECT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration({camera})));
  EXPECT_EQ(host->Outstanding(), 34);
  host->Close();
  gate.Open();
  Stop();
  EXPECT_TRUE(Recordings().empty());
}

TEST_F(Accounting, SeveralThreadsGiveWhileCloseComes) {
  const auto camera = Camera();
  for (int round = 0; round < 5; ++round) {
    Start();
    Configure({camera});
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 40, "IPBPB", 700);
        const auto configuration = hostkit::FullConfiguration({camera});
        for (std::size_t n = 0;; ++n) {
          const bool taken = t == 3 ? host->Ioctl(KELVO_IOCTL_CONFIGURATION, configuration)
                                    : Give(frames[n % frames.size()]);
          if (!taken) return;
          ++accepted;
        }
      });
    }
    while (accepted.load() < 400) std::this_thread::yield();
    host->Close();
    for (auto& thread : threads) thread.join();
    host->Unload();
    ASSERT_EQ(host->Outstanding(), 0);
  }
  Recordings();
}

}  // namespace
}  // namespace plugintest
