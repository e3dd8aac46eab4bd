#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <thread>

#include "hostkit/StorageXml.h"
#include "tests/plugin/SearchFixture.h"

// The plug-in as a Windows host loads it: on the system's own clock, letters and files.
namespace plugintest {
namespace {

class WindowsPlugin : public PluginTest {
 protected:
  WindowsPlugin() {
    host->onSearch = [this](const KelvoHostRequest& request) {
      if (request.SubCode == KELVO_SUB_SEARCH_FRAME && request.Length != 0) {
        played.emplace_back(request);
      }
      return 0u;
    };
  }

  // Gives frames from now on; the last group stays undecided.
  std::vector<Frame> Give(const CameraConfig& camera, int groups) {
    const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 1, Times(groups, "IPBPB"), 900);
    GiveAll(frames);
    Sync();
    return frames;
  }

  std::string Settings() const { return tree.Read("kelvo.xml"); }

  std::vector<PlayedFrame> played;
};

TEST_F(WindowsPlugin, RecordsOnFixedDrivesButNotOnTheSystems) {
  const std::string drive = std::getenv("KELVO_TEST_DRIVE");
  const auto camera = Camera();
  Start({camera});
  const auto first = Give(camera, 30);
  // Another configuration ends the file and begins the next one.
  Configure({camera, Camera(1)});
  const auto second = Give(camera, 30);
  Finish();
  EXPECT_EQ(CountLog("Opened " + drive), 3);  // one is of the camera that gave nothing
  EXPECT_EQ(CountLog("Opened "), 3);
  const auto recordings = Recordings(Id(camera));
  ASSERT_EQ(recordings.size(), 2u);
  ExpectFrames(recordings[0].Of(kVideoSlot), std::span(first).first(145));
  ExpectFrames(recordings[1].Of(kVideoSlot), std::span(second).first(145));
  EXPECT_NE(Settings().find("Name=\"C:\\\" Enabled=\"0\""), std::string::npos) << Settings();
  EXPECT_NE(Settings().find("Name=\"" + drive + "\" Enabled=\"1\""), std::string::npos);
  EXPECT_EQ(Settings().find("Z:"), std::string::npos);
}

TEST_F(WindowsPlugin, KeepsItsSettingsAndFindsItsRecordingsAfterARestart) {
  const auto camera = Camera();
  Start({camera});
  hostkit::StorageSettings settings;
  settings.expirationDays = 17;
  Tell(hostkit::StorageDelta(settings));
  const auto frames = Give(camera, 30);
  Finish();
  const std::string saved = Settings();
  EXPECT_NE(saved.find("Days=\"17\""), std::string::npos) << saved;
  EXPECT_FALSE(boost::filesystem::exists(tree.Path("kelvo.xml.bak")));

  Start();
  EXPECT_EQ(Settings(), saved);
  const std::int64_t start = TimeOf(frames.front()) / 1000;
  host->Read(Ask(1, start - 1, start + 60, {camera}), 1);
  ExpectPlayed(played, std::span(frames).first(145));
}

// What a thread of the host keeps for itself in the library would hold the library in memory.
TEST_F(WindowsPlugin, LibraryIsGoneOnceItIsFreed) {
  const auto camera = Camera();
  Start({camera});
  std::thread([&] {
    const auto frames = Give(camera, 30);
    const std::int64_t start = TimeOf(frames.front()) / 1000;
    host->Read(Ask(1, start - 1, start + 60, {camera}), 1);
  }).join();
  Stop();
  EXPECT_EQ(host->Outstanding(), 0);
  EXPECT_NE(GetModuleHandleA("kelvo.dll"), nullptr);
  host.reset();
  EXPECT_EQ(GetModuleHandleA("kelvo.dll"), nullptr);
  host = std::make_unique<SimHost>(ModulePath(KELVO_PLUGIN));
}

}  // namespace
}  // namespace plugintest
