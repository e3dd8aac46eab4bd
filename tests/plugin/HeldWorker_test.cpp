#include <future>
#include <map>
#include <mutex>

#include "tests/plugin/PluginFixture.h"

// The fixture checks after each test that every buffer was released exactly once.
namespace plugintest {
namespace {

// A worker that is held inside the host's log function, so that the queue can't move.
class HeldWorker : public SeamTest {
 protected:
  HeldWorker() {
    host->onLog = [this](const SimHost::LogLine& line) {
      if (line.text.find("skipping msg") != std::string::npos) {
        reached.set_value();
        gate.get_future().wait();
      }
      const std::lock_guard guard(lock);
      ++told[std::to_string(line.level) + " " + line.text];
    };
    Start({Camera()});
    host->WriteXml(KELVO_WRITE_ACTION, "<stay/>");
    reached.get_future().wait();
  }
  // How often a line has come, ahead of which its level stands.
  int Told(const std::string& text) {
    const std::lock_guard guard(lock);
    return told[text];
  }

  std::promise<void> gate;

 private:
  std::promise<void> reached;
  std::mutex lock;
  std::map<std::string, int> told;
};

TEST_F(HeldWorker, QueueLeftAtUnloadIsReleased) {
  GiveAll(MakeFrames(VideoProvider(Camera()), Now(), 40, Times(10, "IPB"), 500));
  for (const std::uint32_t writeClass : {KELVO_WRITE_ACTION, KELVO_WRITE_PTZ, 0u}) {
    EXPECT_TRUE(host->WriteXml(writeClass, hostkit::PtzMessage(Camera(), 17)));
  }
  EXPECT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration({Camera()})));
  EXPECT_EQ(host->Outstanding(), 34);
  host->Close();
  gate.set_value();
  Stop();
  EXPECT_EQ(Told("50 30 queued frames were not recorded"), 1);
  EXPECT_TRUE(Recordings().empty());
}

TEST_F(HeldWorker, LateRecordingIsToldWhileItIsHeldUpAndWhenThatIsOver) {
  const std::string late = "75 recording is late: frames have waited for more than 10 s";
  const auto frames = MakeFrames(VideoProvider(Camera()), Now(), 40, Times(257, "I"));
  Give(frames[0]);
  bundle.clock.Advance(10'001);
  GiveAll(std::span(frames).subspan(1));
  EXPECT_EQ(Told(late), 1);
  gate.set_value();
  Finish();
  EXPECT_EQ(Told(late), 1);
  EXPECT_EQ(Told("75 recording is in time again"), 1);
}

}  // namespace
}  // namespace plugintest
