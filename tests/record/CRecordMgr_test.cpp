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

constexpr std::uint32_t kProvider = 0x00120100;  // device 1, encoder 0, channel 0

// One camera that always records; with retention of its own if there is an `expiration`.
std::string Configuration(const std::string& expiration = "") {
  return R"(<qDVR><Devices ID="1179648"><Device Number="1"><Video><Input Number="0" Name="Yard">
      <Schedule><Entry FirstHour="0" LastHour="167" Record="2"/>)" +
         expiration + R"(</Schedule></Input></Video>
      <Audio><Input Number="0"><Schedule><Entry FirstHour="0" LastHour="167" Record="2"/></Schedule>
      </Input></Audio><Codec><Encoder Number="0">
      <Channel Number="0" Standard="2" Width="640" Height="480"/>
      <AudioChannel Number="0" Standard="1" SampleRate="8000" BufSizeSamples="160"/>
      </Encoder></Codec></Device></Devices></qDVR>)";
}

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
    manager = std::make_unique<CRecordMgr>(storage, core, bundle.platform);
  }

  RecordMessage Xml(std::uint32_t type, const std::string& text, std::uint32_t messageClass = 0) {
    RecordMessage message;
    message.Type = type;
    message.Class = messageClass;
    message.Payload = host.NewBuffer(text);
    message.Length = static_cast<std::uint32_t>(text.size());
    return message;
  }
  // An I frame; the next one is 40 ms younger.
  RecordMessage Frame() {
    RecordMessage message = Xml(0, "frame", 1);
    message.Source = kProvider;
    message.Header.FrameType = KELVO_FRAME_I;
    const qv::kelvo::UtcMs now = bundle.clock.NowMs();
    message.Header.Seconds = static_cast<std::uint32_t>(now / 1000);
    message.Header.Milliseconds = static_cast<std::uint16_t>(now % 1000);
    bundle.clock.Advance(40);
    return message;
  }
  void Handle(const RecordMessage& message) {
    manager->HandleMessage(message);
    manager->AfterMessage(0);
  }

  FakeHost host;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  qv::kelvo::TempTree tree;
  FailingStorage storage{core, bundle.platform};
  std::unique_ptr<CRecordMgr> manager;
};

TEST_F(RecordManager, AppliesWholeDocumentsOnlyAndReleasesEachOnce) {
  const std::string good = R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="5"/></qDVR>)";
  struct Case {
    std::string text;
    std::uint32_t type, messageClass;
    bool applied;
    const char* line;  // "" for none
  };
  const Case cases[] = {
      {good, 2, 0, true, ""},
      {good + std::string("\0<rest", 6), 2, 0, true, ""},
      {good, 3, 0, false, ""},
      {good, 0, 0, false, ""},
      {good, 0, KELVO_WRITE_ACTION, false, ""},
      {good, 0, KELVO_WRITE_PTZ, false, ""},
      {good, 9, 0, false, ""},
      {R"(<qDVR Delta="0"><Storage ID="327680" TimeLapse="5"/></qDVR>)", 2, 0, false, ""},
      {R"(<qDVR><Storage ID="327680" TimeLapse="5"/></qDVR>)", 2, 0, false, ""},
      {R"(<other Delta="1"/>)", 2, 0, false, "skipping msg - qDVR is not root element"},
      {good.substr(0, good.size() - 3), 2, 0, false, "skipping msg - Bad XML"},
      {good + "<more", 2, 0, false, "skipping msg - Bad XML"},
      {"", 2, 0, false, "skipping msg - Bad XML"},
      {"no xml", 3, 0, false, "skipping msg - Bad XML"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.text + " as " + std::to_string(row.type));
    Handle(Xml(2, R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="0"/></qDVR>)"));
    host.ForgetTraffic();
    Handle(Xml(row.type, row.text, row.messageClass));
    EXPECT_EQ(storage.TimeLapse(), row.applied ? 5 : 0);
    EXPECT_EQ(host.Outstanding(), 0u);
    EXPECT_EQ(host.CountLines(50, row.line), *row.line == '\0' ? 0u : 1u);
    EXPECT_EQ(host.CountLines(50, ""), host.CountLines(50, row.line));
  }
}

TEST_F(RecordManager, DeltaIsReportedSavedBroadcastAndAnswered) {
  Handle(Xml(2, R"(<qDVR Delta="1"><Storage ID="327680"><Drive Name="/x/"/></Storage></qDVR>)"));
  const auto events = host.Events();
  // The first came from the start.
  const std::vector<std::pair<std::uint32_t, std::string>> expected = {
      {256, "Thumbnail"}, {4, "SizeGB"}, {256, "Thumbnail"}, {4, "Drive not found"}};
  ASSERT_EQ(events.size(), expected.size());
  for (std::size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(events[i].eventClass, expected[i].first) << i;
    EXPECT_NE(events[i].text.find(expected[i].second), std::string::npos) << events[i].text;
  }
}

TEST_F(RecordManager, CasesGoToTheFileFromTheFirstElementOfTheirSender) {
  const auto stored = [] {
    std::ifstream file("kelvo.xml");
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  Handle(Xml(2, R"(<qDVR><Cases ID="1"><Case ID="no"/></Cases><Cases ID="393216"><Case ID="yes"/>
      </Cases><Cases ID="393216"><Case ID="late"/></Cases></qDVR>)"));
  EXPECT_NE(stored().find("yes"), std::string::npos);
  EXPECT_EQ(stored().find("no\""), std::string::npos);
  EXPECT_EQ(stored().find("late"), std::string::npos);
  Handle(Xml(2, R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="5"/></qDVR>)"));
  EXPECT_NE(stored().find("yes"), std::string::npos);
  EXPECT_NE(stored().find("TimeLapse=\"5\""), std::string::npos);
  EXPECT_EQ(host.Events().back().text.find("Cases"), std::string::npos);
}

TEST_F(RecordManager, ReservesOnRequestAndGivesUp) {
  const std::string drive = tree.Path("a/");
  bundle.drives.SetSpace(drive, {100ull << 30, 50ull << 30, 50ull << 30});
  const auto act = [&](const std::string& attributes, const char* id = "327680") {
    host.ForgetTraffic();
    Handle(Xml(0,
               "<qDVR><Storage ID='" + std::string(id) + "'><Reservation " + attributes +
                   "/></Storage></qDVR>",
               KELVO_WRITE_ACTION));
    return host.Events();
  };
  auto events = act("GUID='g' Command='4' ReserveGB='20'");
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].eventClass, 4u);
  EXPECT_EQ(events[0].text,
            "<?xml ?><qDVR><Storage ID=\"327680\"><Reservation GUID=\"g\" "
            "ReserveGB=\"20\" OutDir=\"" +
                drive + "\" TmpDir=\"" + drive + "edgestortmp\" /></Storage></qDVR>");
  EXPECT_EQ(host.CountLines(25, "Added reservation GUID g for 20 GB"), 1u);
  for (const char* ignored :
       {"GUID='g' Command='4' ReserveGB='5'", "GUID='h' Command='4' ReserveGB='0'",
        "GUID='h' Command='4'", "GUID='' Command='4' ReserveGB='5'", "GUID='h' ReserveGB='5'",
        "GUID='h' Command='7' ReserveGB='5'"}) {
    EXPECT_TRUE(act(ignored).empty()) << ignored;
  }
  EXPECT_TRUE(act("GUID='h' Command='4' ReserveGB='5'", "1").empty());
  EXPECT_EQ(manager->ReservedGB(drive), 20);

  EXPECT_EQ(act("GUID='i' Command='4' ReserveGB='10'").size(), 1u);
  EXPECT_EQ(manager->ReservedGB(drive), 30);
  events = act("GUID='j' Command='4' ReserveGB='21'");
  ASSERT_FALSE(events.empty());
  EXPECT_NE(events.back().text.find(R"(<Reservation GUID="j" ReserveGB="0" />)"),
            std::string::npos);
  EXPECT_EQ(host.CountLines("Added"), 0u);
  act("GUID='g' Command='5'");
  EXPECT_EQ(host.CountLines(25, "Deleted reservation GUID g"), 1u);
  EXPECT_EQ(manager->ReservedGB(drive), 10);
  act("GUID='unknown' Command='3'");
  EXPECT_EQ(host.CountLines(25, "Deleted reservation GUID unknown"), 1u);
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
  EXPECT_EQ(sweeps(), 1u);
  pass(1);
  storage.KickSweeper(true);
  EXPECT_EQ(sweeps(), 2u);
}

TEST_F(RecordManager, AudioMovesWhenItsSettingChanges) {
  Handle(Xml(2, Configuration(R"(<Expiration Type="1" Days="5"/>)")));
  EXPECT_EQ(host.CountLines("Opened "), 2u);
  EXPECT_EQ(host.CountLines("Closed "), 0u);
  const auto set = [&](int value) {
    Handle(Xml(2, "<qDVR Delta='1'><Storage ID='327680' PreserveExpirationAudioWithVideo='" +
                      std::to_string(value) + "'/></qDVR>"));
  };
  set(1);  // the video's file is opened anew with the audio, the audio's own file ends for good
  EXPECT_EQ(host.CountLines("Closed "), 2u);
  EXPECT_EQ(host.CountLines("Opened "), 3u);
  set(1);
  EXPECT_EQ(host.CountLines("Closed "), 2u);
  set(0);
  EXPECT_EQ(host.CountLines("Opened "), 4u);
}

TEST_F(RecordManager, ThrowingWorkEndsAtTheMessageAndLosesNoBuffer) {
  manager->Start();
  storage.fails = true;
  const auto configuration = Xml(2, Configuration());
  ASSERT_TRUE(manager->Enqueue(configuration));
  ASSERT_TRUE(host.WaitForLine("handling a message failed: the volume fell off"));
  EXPECT_EQ(host.CountLines(75, "handling a message failed"), 1u);
  ASSERT_TRUE(manager->Enqueue(Xml(0, "<next/>")));
  ASSERT_TRUE(host.WaitForLine("skipping msg - qDVR is not root element"));
  ASSERT_TRUE(manager->Enqueue(Frame()));
  ASSERT_TRUE(host.WaitForLine("opening the next file failed: the volume fell off"));
  manager.reset();
  EXPECT_EQ(host.Outstanding(), 0u);
}

TEST_F(RecordManager, FrameTakenAsTheStopComesIsReleasedAtTheEnd) {
  Handle(Xml(2, Configuration()));
  manager->RequestStop();
  manager->RequestStop();
  Handle(Frame());
  EXPECT_EQ(Stats().eav, 0u);
  EXPECT_EQ(host.Outstanding(), 1u);
  Handle(Xml(2, R"(<qDVR Delta="1"><Storage ID="327680" TimeLapse="5"/></qDVR>)"));
  EXPECT_EQ(host.Outstanding(), 1u);
  EXPECT_EQ(storage.TimeLapse(), 0);
  const RecordMessage late = Frame();
  EXPECT_FALSE(manager->Enqueue(late));
  core.DecrementReference(late.Payload);
  manager.reset();
  EXPECT_EQ(host.Outstanding(), 0u);
}

}  // namespace
}  // namespace qvsvr::kelvo
