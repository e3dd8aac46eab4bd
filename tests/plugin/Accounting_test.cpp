#include <atomic>
#include <future>
#include <thread>

#include "tests/plugin/PluginFixture.h"

// The fixture checks after each test that every buffer was released exactly once.
namespace plugintest {
namespace {

using Accounting = PluginTest;
using WithSeams = SeamTest;

TEST_F(Accounting, OnlyWantedFramesFromAKeyFrameOnAreWritten) {
  const auto camera = Camera(), idle = Camera(1, kOnAlarm);
  Start({camera, idle});
  const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 40, "PBPIPPIPP");
  GiveAll(frames);
  GiveAll(MakeFrames(VideoProvider(idle), NowMs(), 40, Times(20, "IPB")));
  Finish();
  ASSERT_EQ(Recordings().size(), 1u);
  ExpectRecorded(camera, std::span(frames).subspan(3, 3));
}

TEST_F(Accounting, UnknownSourcesAreReported) {
  const auto camera = Camera();
  Start({camera});
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

TEST_F(WithSeams, WithoutADriveOneWarningAndNothingKept) {
  bundle.drives.Change([](auto& table) { table.drives.clear(); });
  Start({Camera()});
  GiveAll(MakeFrames(VideoProvider(Camera()), Now(), 40, Times(20, "IPB")));
  Sync();
  EXPECT_EQ(CountLog("could not get record volume"), 1);
  EXPECT_EQ(CountLog("psfile write error"), 0);
}

TEST_F(Accounting, QueueLeftAtUnloadIsReleased) {
  const auto camera = Camera();
  // Holds the worker inside the host's log function, so that the queue can't move.
  std::promise<void> reached, gate;
  bool told = false;
  host->onLog = [&](const SimHost::LogLine& line) {
    if (line.text == "30 queued frames were not recorded") told = line.level == KELVO_LOG_WARNING;
    if (line.text.find("skipping msg") == std::string::npos) return;
    reached.set_value();
    gate.get_future().wait();
  };
  Start({camera});
  host->WriteXml(KELVO_WRITE_ACTION, "<stay/>");
  reached.get_future().wait();
  GiveAll(MakeFrames(VideoProvider(camera), NowMs(), 40, Times(10, "IPB"), 500));
  for (const std::uint32_t writeClass : {KELVO_WRITE_ACTION, KELVO_WRITE_PTZ, 0u}) {
    EXPECT_TRUE(host->WriteXml(writeClass, hostkit::PtzMessage(camera, 17)));
  }
  EXPECT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration({camera})));
  EXPECT_EQ(host->Outstanding(), 34);
  host->Close();
  gate.set_value();
  Stop();
  EXPECT_TRUE(told);
  EXPECT_TRUE(Recordings().empty());
}

TEST_F(WithSeams, LateRecordingIsToldWhileItIsHeldUpAndWhenThatIsOver) {
  std::promise<void> reached, gate;
  std::atomic<int> late{0}, inTime{0};
  host->onLog = [&](const SimHost::LogLine& line) {
    if (line.text.find("skipping msg") != std::string::npos) {
      reached.set_value();
      gate.get_future().wait();
    }
    if (line.level != KELVO_LOG_ERROR) return;
    late += line.text == "recording is late: frames have waited for more than 10 s";
    inTime += line.text == "recording is in time again";
  };
  Start({Camera()});
  host->WriteXml(KELVO_WRITE_ACTION, "<stay/>");
  reached.get_future().wait();
  const auto frames = MakeFrames(VideoProvider(Camera()), Now(), 40, Times(257, "I"));
  Give(frames[0]);
  bundle.clock.Advance(10'001);
  GiveAll(std::span(frames).subspan(1));
  EXPECT_EQ(late, 1);
  gate.set_value();
  Finish();
  EXPECT_EQ(late, 1);
  EXPECT_EQ(inTime, 1);
}

TEST_F(Accounting, SeveralThreadsGiveWhileCloseComes) {
  const auto camera = Camera();
  const auto configuration = hostkit::FullConfiguration({camera});
  for (int round = 0; round < 5; ++round) {
    Start({camera});
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 40, "IPBPB", 700);
        for (std::size_t n = 0; t == 3 ? host->Ioctl(KELVO_IOCTL_CONFIGURATION, configuration)
                                       : Give(frames[n % frames.size()]);
             ++n) {
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
