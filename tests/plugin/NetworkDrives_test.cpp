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
  const std::string saved = "TimeLapse=";  // only the settings tell it
  Start({camera});
  EXPECT_EQ(CountEvents(saved), 1);
  GiveInTime(std::span(frames).first(20));
  Tell(known);
  EXPECT_EQ(CountEvents(saved), 2);
  EXPECT_NE(tree.Read("kelvo.xml").find("<Drive Name=\"" + disk), std::string::npos);
  GiveInTime(std::span(frames).subspan(20, 20));
  Tell(known);
  EXPECT_EQ(CountEvents(saved), 2) << "nothing new";
  Tell(begin + "</Archives></qDVR>");
  EXPECT_EQ(CountEvents(saved), 3);
  GiveInTime(std::span(frames).subspan(40));
  Finish();
  const auto recordings = Recordings();
  EXPECT_EQ(recordings.size(), 3u);
  const auto kept = FramesOf(recordings);
  ExpectFrames(kept, std::span(frames).first(kept.size()));
  EXPECT_GE(kept.size() + 5, frames.size());
  EXPECT_EQ(CountLog("discovered via iSCSI."), 1);
  EXPECT_EQ(CountLog("disappeared via iSCSI."), 1);
}

}  // namespace
}  // namespace plugintest
