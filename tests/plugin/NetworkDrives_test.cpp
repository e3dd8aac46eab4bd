#include <algorithm>

#include "tests/plugin/PluginFixture.h"

namespace plugintest {
namespace {

using NetworkDrives = SeamTest;

TEST_F(NetworkDrives, ComingAndGoingClosesFilesSavesAndRecordsOn) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), Now(), 1000, Times(12, "IPBPB"));
  const std::string begin = "<qDVR><Archives ID=\"3735552\">";
  const std::string disk = tree.MakeDirectory("net");
  const std::string known = begin +
                            "<Portal><Target ID=\"1\" Enabled=\"1\"><Partition MountPoint=\"" +
                            disk + "\"/></Target></Portal></Archives></qDVR>";
  const auto tell = [&](const std::string& xml) {
    Sync();
    (void)host->TakeEvents();
    ASSERT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, xml));
    Sync();
  };
  const auto saves = [&] {
    const auto events = host->TakeEvents();
    return std::ranges::count_if(events, [](const auto& event) {
      return event.eventClass == KELVO_CLASS_BROADCAST &&
             event.xml.find("<Storage ID=\"327680\"") != std::string::npos;
    });
  };
  Start();
  Configure({camera});
  GiveInTime(std::span(frames).first(20));
  tell(known);
  EXPECT_EQ(saves(), 1);
  EXPECT_NE(tree.Read("kelvo.xml").find("<Drive Name=\"" + disk), std::string::npos);
  GiveInTime(std::span(frames).subspan(20, 20));
  tell(known);
  EXPECT_EQ(saves(), 0) << "nothing new";
  tell(begin + "</Archives></qDVR>");
  EXPECT_EQ(saves(), 1);
  GiveInTime(std::span(frames).subspan(40));
  Finish();
  const auto recordings = RecordingsOf(camera);
  EXPECT_EQ(recordings.size(), 3u);
  const auto kept = FramesOf(recordings, 0);
  ExpectFrames(kept, std::span(frames).first(kept.size()));
  EXPECT_GE(kept.size() + 5, frames.size());
  EXPECT_EQ(CountLog("discovered via iSCSI."), 1);
  EXPECT_EQ(CountLog("disappeared via iSCSI."), 1);
}

}  // namespace
}  // namespace plugintest
