#include "record/CRecordMgr.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

// One camera that always records, with sound and retention of its own.
constexpr std::uint32_t kProvider = 0x00120100;  // device 1, encoder 0, channel 0
constexpr char kCamera[] =
    R"(<qDVR><Devices ID="1179648"><Device Number="1"><Video><Input Number="0"><Schedule>
    <Entry FirstHour="0" LastHour="167" Record="2"/><Expiration Type="1" Days="5"/></Schedule>
    </Input></Video><Audio><Input Number="0"/></Audio><Codec><Encoder Number="0">
    <Channel Number="0" Standard="2" Width="640" Height="480"/>
    <AudioChannel Number="0" Standard="1" SampleRate="8000" BufSizeSamples="160"/>
    </Encoder></Codec></Device></Devices></qDVR>)";
constexpr char kTimeLapse5[] = R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="5"/></qDVR>)";

class FailingStorage : public CFileSystem {
 public:
  using CFileSystem::CFileSystem;
  std::string GetRecordVolume(const IRecordManager* manager, std::int64_t desiredGB) override {
    if (fails) throw std::runtime_error("the volume fell off");
    return CFileSystem::GetRecordVolume(manager, desiredGB);
  }
  bool fails = false;
};

class RecordManager : public ::testing::Test {
 protected:
  void SetUp() override {
    Stats() = {};
    bundle.drives.Add(tree.MakeDirectory("a"));
    ASSERT_TRUE(storage.LoadStorage());
    manager = std::make_unique<CRecordMgr>(storage, core, bundle.platform, queue);
  }

  RecordMessage Xml(std::uint32_t type, const std::string& text, std::uint32_t messageClass = 0) {
    RecordMessage message;
    message.Type = type;
    message.Class = messageClass;
    message.Payload = host.NewBuffer(text);
    message.Length = static_cast<std::uint32_t>(text.size());
    return message;
  }
  RecordMessage Frame() {
    RecordMessage message = Xml(0, "frame", KELVO_WRITE_FRAME);
    message.Source = kProvider;
    message.Header.FrameType = KELVO_FRAME_I;
    message.Header.Seconds = static_cast<std::uint32_t>(bundle.clock.NowMs() / 1000);
    return message;
  }
  void Handle(const RecordMessage& message) {
    manager->HandleMessage(message);
    manager->AfterMessage(0, bundle.clock.SteadyNs());
  }

  FakeHost host;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  qv::kelvo::TempTree tree;
  FailingStorage storage{core, bundle.platform};
  RecordQueue queue;
  std::unique_ptr<CRecordMgr> manager;
};

TEST_F(RecordManager, AppliesWholeDocumentsOnlyAndReleasesEachOnce) {
  const std::string good = kTimeLapse5;
  const struct {
    std::string text;
    std::uint32_t type, messageClass;
    bool applied;
    const char* line;  // "" for none
  } cases[] = {
      {good, 2, 0, true, ""},
      {good + std::string("\0<rest", 6), 2, 0, true, ""},
      {good, 3, 0, false, ""},
      {good, 0, KELVO_WRITE_ACTION, false, ""},
      {R"(<qDVR Delta="0"><Storage ID="327680" TimeLapse="5"/></qDVR>)", 2, 0, false, ""},
      {R"(<other Delta="1"/>)", 2, 0, false, "skipping msg - qDVR is not root element"},
      {good + "<more", 2, 0, false, "skipping msg - Bad XML"},
      {"", 2, 0, false, "skipping msg - Bad XML"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text + " as " + std::to_string(row.type));
    Handle(Xml(2, R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="0"/></qDVR>)"));
    host.ForgetTraffic();
    Handle(Xml(row.type, row.text, row.messageClass));
    EXPECT_EQ(storage.Lapse().timeLapse, row.applied ? 5 : 0);
    EXPECT_EQ(host.Outstanding(), 0u);
    EXPECT_EQ(host.CountLines(50, row.line), *row.line == '\0' ? 0u : 1u);
    EXPECT_EQ(host.CountLines(50, ""), host.CountLines(50, row.line));
  }
}

TEST_F(RecordManager, CasesGoToTheFileFromTheFirstElementOfTheirSender) {
  const auto stored = [](const char* text) {
    std::ifstream file("kelvo.xml");
    const std::string all(std::istreambuf_iterator<char>(file), {});
    return all.find(text) != std::string::npos;
  };
  Handle(Xml(2, R"(<qDVR><Cases ID="1"><Case ID="no"/></Cases><Cases ID="393216"><Case ID="yes"/>
      </Cases><Cases ID="393216"><Case ID="late"/></Cases></qDVR>)"));
  EXPECT_TRUE(stored("yes") && !stored("\"no\"") && !stored("late"));
  // A delta is saved, broadcast without the cases, and what it names amiss is answered.
  host.ForgetTraffic();
  Handle(Xml(2, R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="5"><Drive Name="/x/"/></Storage>
      </qDVR>)"));
  EXPECT_TRUE(stored("yes") && stored("TimeLapse=\"5\""));
  const auto events = host.Events();
  ASSERT_EQ(events.size(), 3u);
  const std::pair<std::uint32_t, std::string> expected[] = {
      {4, "SizeGB"}, {256, "Thumbnail"}, {4, "Drive not found"}};
  for (std::size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(events[i].eventClass, expected[i].first) << i;
    EXPECT_NE(events[i].text.find(expected[i].second), std::string::npos) << events[i].text;
    EXPECT_EQ(events[i].text.find("Cases"), std::string::npos);
  }
}

TEST_F(RecordManager, SweepsAfterFiveMinutesAndThenHourly) {
  const auto sweeps = [&] { return host.CountLines("Sweeper - "); };
  const auto pass = [&](std::int64_t seconds) {
    bundle.clock.Advance(seconds * 1000);
    Handle(Xml(0, "<qDVR/>"));
  };
  pass(299);
  EXPECT_EQ(sweeps(), 0u);
  pass(1);
  EXPECT_TRUE(host.WaitForLine("fs-cleanup - elapsed"));
  EXPECT_EQ(host.CountLines(25, "Sweeper - no expiration rules and no bookmarks"), 1u);
  storage.KickSweeper(true);
  pass(3599);
  storage.KickSweeper(true);
  EXPECT_EQ(sweeps(), 1u);
  pass(1);
  storage.KickSweeper(true);
  EXPECT_EQ(sweeps(), 2u);
}

TEST_F(RecordManager, AudioMovesWhenItsSettingChanges) {
  Handle(Xml(2, kCamera));
  const auto openedAndClosedAfter = [&](int setting) {
    Handle(Xml(2, "<qDVR Delta='1'><Storage ID='327680' PreserveExpirationAudioWithVideo='" +
                      std::to_string(setting) + "'/></qDVR>"));
    return std::pair(host.CountLines("Opened "), host.CountLines("Closed "));
  };
  // The video's file is opened anew with the audio, the audio's own file ends for good.
  EXPECT_EQ(openedAndClosedAfter(0), std::pair(std::size_t{2}, std::size_t{0}));
  EXPECT_EQ(openedAndClosedAfter(1), std::pair(std::size_t{3}, std::size_t{2}));
  EXPECT_EQ(openedAndClosedAfter(1), std::pair(std::size_t{3}, std::size_t{2}));
  EXPECT_EQ(openedAndClosedAfter(0), std::pair(std::size_t{4}, std::size_t{2}));
}

TEST_F(RecordManager, ThrowingWorkEndsAtTheMessageAndLosesNoBuffer) {
  manager->Start();
  storage.fails = true;
  ASSERT_TRUE(queue.Enqueue(Xml(2, kCamera)));
  ASSERT_TRUE(host.WaitForLine("handling a message failed: the volume fell off"));
  EXPECT_EQ(host.CountLines(75, "handling a message failed"), 1u);
  ASSERT_TRUE(queue.Enqueue(Frame()));
  ASSERT_TRUE(host.WaitForLine("opening the next file failed: the volume fell off"));
  manager.reset();
  EXPECT_EQ(host.Outstanding(), 0u);
}

TEST_F(RecordManager, FrameTakenAsTheStopComesIsReleasedAtTheEnd) {
  Handle(Xml(2, kCamera));
  queue.Stop();
  Handle(Frame());
  EXPECT_EQ(Stats().eav, 0u);
  EXPECT_EQ(host.Outstanding(), 1u);
  Handle(Xml(2, kTimeLapse5));
  EXPECT_EQ(storage.Lapse().timeLapse, 0);
  const RecordMessage late = Frame();
  EXPECT_FALSE(queue.Enqueue(late));
  core.DecrementReference(late.Payload);
  manager.reset();
  EXPECT_EQ(host.Outstanding(), 0u);
}

}  // namespace
}  // namespace qvsvr::kelvo
