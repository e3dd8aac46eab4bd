// What "kelvo.xml" in the current directory keeps, and what the host hears of it.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class SettingsFile : public RecordingForest {
 protected:
  SettingsFile() { AddDrives(1000); }
  void Restart() {
    host.ForgetTraffic();
    Open();
  }
  static std::string Stored() {
    std::ifstream file("kelvo.xml", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static void Store(const std::string& text) {
    std::ofstream("kelvo.xml", std::ios::binary | std::ios::trunc) << text;
  }
  std::string Broadcast() {
    const auto events = host.Events();
    const auto found = std::ranges::find(events, 256u, &FakeHost::XmlEvent::eventClass);
    return found == events.end() ? "" : found->text;
  }
  static bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }
};

TEST_F(SettingsFile, FirstStartWritesAndBroadcastsTheDefaults) {
  Restart();
  const std::string settings =
      R"(Expiration="1" PreserveExpirationAudioWithVideo="0" TimeLapseSchedule="1" TimeLapse="0" )"
      R"(ContentAge="0" FSCleanupRemoves="1")";
  const std::string children =
      R"(><Expiration Type="0" Days="0" /><Drive Name="a/" Enabled="1" Percent="100" System="0" />)"
      R"(<Drive Name="b/" Enabled="1" Percent="100" System="0" /></Storage></qDVR>)";
  EXPECT_EQ(Broadcast(), R"(<?xml ?><qDVR Delta="0"><Storage ID="327680" )" + settings +
                             R"( Thumbnail="2" SupportsTargetSearch="1" RecordAlarms="1")" +
                             children);
  const ParsedXml stored(Stored());
  EXPECT_EQ(TextOf(stored.Root()),
            R"(<qDVR Delta="0"><Storage ID="327680" )" + settings + children);
  ASSERT_EQ(host.Events().size(), 1u) << "there was no file to report on";
}

TEST_F(SettingsFile, EverythingSurvivesARestartAndSoDoesWhatIsUnknown) {
  Store(R"(<?xml version="1.0"?><qDVR Delta="0" own="x"><Other/><Storage ID="7" TimeLapse="9"/>
      <Storage ID="327680" odd="1" Thumbnail="2"><Drive Name="gone/" Enabled="1" Percent="60"
      System="1" odd="2"/><Devices ID="1179648"><Device Number="1"><Video><Input Number="2">
      <Schedule><Entry FirstHour="1" LastHour="2" TimeLapse="3"/><Entry FirstHour="9"/></Schedule>
      </Input></Video></Device></Devices></Storage><Cases><Case ID="c"><Bookmark ID="b" Start="5"
      End="6"/></Case></Cases></qDVR>)");
  Restart();
  EXPECT_EQ(storage->TimeLapse(), 0);
  const auto events = host.Events();
  ASSERT_EQ(events.size(), 3u);  // report, broadcast, answer
  EXPECT_TRUE(Contains(events[2].text, R"(Name="gone/" Alarm="1")")) << events[2].text;
  Apply(R"(<Storage ID="327680" PreserveExpirationAudioWithVideo="1" TimeLapse="77"
        ContentAge="88" FSCleanupRemoves="0"><Expiration Type="2" Days="12"/>
        <Drive Name="a/" Enabled="0" Percent="70"/><Drive Name="gone/" Enabled="0"/>
        <Devices ID="1179648"><Device Number="1"><Context Number="4"><Video><Input Number="2">
        <Schedule><Entry FirstHour="4" LastHour="5" TimeLapse="6"/></Schedule></Input></Video>
        </Context></Device></Devices></Storage>)");
  // What can't be read or isn't allowed changes nothing.
  Apply(R"(<Storage ID="327680" TimeLapse="-1" ContentAge="-1" FSCleanupRemoves="" Expiration="1"
        PreserveExpirationAudioWithVideo="2"><Expiration Type="1"/></Storage>)");
  EXPECT_EQ(storage->PreserveAudioChanges(), 1u);
  storage->SaveStorage();
  // A save that was interrupted between its renames leaves this.
  boost::filesystem::rename("kelvo.xml", "kelvo.xml.bak");
  std::ofstream("kelvo.xml.pending") << "<qDVR";
  Restart();
  EXPECT_FALSE(Exists("kelvo.xml.bak"));
  EXPECT_EQ(storage->TimeLapse(), 77);
  EXPECT_TRUE(storage->PreserveExpirationAudioWithVideo());
  EXPECT_EQ(storage->ListUsableVolumes(), std::vector<std::string>{"b/"});
  Schedule list;
  EXPECT_TRUE(storage->GetTimeLapseSchedule(0, 1179648, 1, 2, list));
  EXPECT_EQ(list, (Schedule{{1, 2, 3}}));
  EXPECT_TRUE(storage->GetTimeLapseSchedule(4, 1179648, 1, 2, list));
  EXPECT_EQ(list, (Schedule{{4, 5, 6}}));
  const ParsedXml parsed(Stored());
  const std::string text = TextOf(parsed.Root());
  for (const char* part :
       {R"(own="x")", "<Other />", R"(<Storage ID="7" TimeLapse="9" />)", R"(odd="1")",
        R"(<Drive Name="gone/" Enabled="0" Percent="60" System="1" odd="2" />)",
        R"(<Drive Name="a/" Enabled="0" Percent="70" System="0" />)", R"(Expiration="0" )",
        R"(<Expiration Type="2" Days="12" />)", R"(ContentAge="88")", R"(FSCleanupRemoves="0")",
        R"(<Bookmark ID="b" Start="5" End="6" />)"}) {
    EXPECT_TRUE(Contains(text, part)) << part << " in " << text;
  }
  EXPECT_FALSE(Contains(text, "Thumbnail"));
  EXPECT_FALSE(Contains(text, R"(<Entry FirstHour="9")"));
  EXPECT_FALSE(Contains(Broadcast(), "Case"));
  EXPECT_TRUE(Contains(Broadcast(), R"(RecordAlarms="1")"));
}

TEST_F(SettingsFile, OddFilesNeverStopAStart) {
  const std::string texts[] = {"", "garbage", "<other/>", std::string(4096, '\0'),
                               "<qDVR><Storage ID='327680' TimeLapse='5'"};
  for (const std::string& text : texts) {
    SCOPED_TRACE(text.substr(0, 40));
    Store(text);
    Restart();
    EXPECT_EQ(storage->TimeLapse(), 0);
    EXPECT_EQ(Contains(Stored(), "<other"), text == "<other/>");
    EXPECT_TRUE(Contains(Stored(), R"(Name="a/")"));
  }
  boost::filesystem::resize_file("kelvo.xml", 100u << 20);
  Restart();
  EXPECT_LT(boost::filesystem::file_size("kelvo.xml"), 4096u);

  boost::filesystem::remove("kelvo.xml");
  boost::filesystem::create_directories("kelvo.xml/in/the/way");
  boost::filesystem::create_directories("kelvo.xml.bak/in/the/way");
  Restart();
  EXPECT_TRUE(Contains(Broadcast(), "Storage"));
  storage->SaveStorage();
  EXPECT_EQ(host.CountLines(75, "kelvo.xml could not be saved: "), 1u) << "told once";
}

TEST_F(SettingsFile, BookmarksOfAMessageReplaceThoseOfTheFile) {
  const std::string path = Plant("a/", kNow - kDay);
  const std::pair<const char*, bool> rows[] = {
      {"<Device Number='1'/>", false},
      {"<Device Number='2'><Video/></Device>", false},
      {"<Device Number='1'><Context Number='1'><Video/></Context></Device>", false},
      {"<Device Number='1'><Audio/></Device>", true},
  };
  for (const auto& [device, covers] : rows) {
    SCOPED_TRACE(device);
    Restart();
    ApplyCases(
        "<Case><Bookmark ID='x' Start='1' End='2'/></Case><Case ID='c'><Bookmark ID='b' Start='" +
        std::to_string(kNow - kDay) + "' End='" + std::to_string(kNow) +
        "'><Devices ID='1179649'>" + device +
        "</Devices></Bookmark><Bookmark ID='b' Start='x' End='5'/></Case>");
    for (const char* when : {"at once", "after a restart"}) {
      EXPECT_EQ(storage->RemoveFile(path, false), !covers) << when;
      WriteFile(path);
      storage->SaveStorage();
      Restart();
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
