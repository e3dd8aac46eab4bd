// What "kelvo.xml" in the current directory keeps, and what the host hears of it.
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <set>

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
  static std::string Read(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static std::string Stored() { return Read("kelvo.xml"); }
  static void Store(const std::string& text) {
    std::ofstream("kelvo.xml", std::ios::binary | std::ios::trunc) << text;
  }
  // A file with a bookmark of the last day.
  static std::string WithBookmark(const std::string& settings) {
    return "<qDVR>" + settings + "<Cases><Case ID='c'>" + Bookmark("b", kNow - kDay, kNow) +
           "</Case></Cases></qDVR>";
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
  EXPECT_EQ(storage->Lapse().timeLapse, 0);
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
  EXPECT_EQ(storage->Retention().preserveAudioChanges, 1u);
  // The process's directory is the whole host's to change.
  EXPECT_EQ(host.CountLines(25, "Settings are kept in "), 1u);
  const boost::filesystem::path home = boost::filesystem::current_path();
  boost::filesystem::current_path(home.parent_path());
  storage->SaveStorage();
  boost::filesystem::current_path(home);
  // A save that was interrupted between its renames leaves this.
  boost::filesystem::rename("kelvo.xml", "kelvo.xml.bak");
  std::ofstream("kelvo.xml.pending") << "<qDVR";
  Restart();
  EXPECT_FALSE(Exists("kelvo.xml.bak"));
  EXPECT_EQ(storage->Lapse().timeLapse, 77);
  EXPECT_TRUE(storage->Retention().preserveExpirationAudioWithVideo);
  EXPECT_EQ(storage->Volumes().ListUsable(), std::vector<std::string>{"b/"});
  Schedule list;
  EXPECT_TRUE(storage->Lapse().GetSchedule(qv::kelvo::MakeStreamID(0, 1179648, 1, 2), list));
  EXPECT_EQ(list, (Schedule{{1, 2, 3}}));
  EXPECT_TRUE(storage->Lapse().GetSchedule(qv::kelvo::MakeStreamID(4, 1179648, 1, 2), list));
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

TEST_F(SettingsFile, DamagedFilesArePutAsideAndStopNoStart) {
  const std::string texts[] = {"", "garbage", std::string(4096, '\0'), "<qDVR/",
                               "<qDVR><a></qDVR>"};
  int aside = 0;
  const auto restart = [&] {
    Restart();
    EXPECT_TRUE(Contains(Stored(), R"(Name="a/")"));
    return "kelvo.xml.damaged" + std::to_string(++aside);
  };
  for (const std::string& text : texts) {
    SCOPED_TRACE(text.substr(0, 40));
    Store(text);
    const std::string name = restart();
    EXPECT_EQ(host.CountLines(75, "kelvo.xml is damaged and was put aside as " + name), 1u);
    EXPECT_EQ(Read(name), text);
  }
  boost::filesystem::remove("kelvo.xml");
  boost::filesystem::create_directories("kelvo.xml/in/the/way");
  boost::filesystem::create_directories("kelvo.xml.bak/in/the/way");
  EXPECT_TRUE(boost::filesystem::is_directory(restart() + "/in/the/way"));
  EXPECT_TRUE(Exists("kelvo.xml.damaged" + std::to_string(aside + 1)));
  // Whole, only that the first element isn't this system's.
  Store("<other/>");
  restart();
  ApplyCases("<Case ID='c'/>");
  EXPECT_TRUE(Contains(Stored(), "<other />"));
  EXPECT_TRUE(Contains(Stored(), "<Case ID='c'/></Cases>\n</qDVR>")) << Stored();

  boost::filesystem::remove("kelvo.xml");
  boost::filesystem::create_directories("kelvo.xml.pending/in/the/way");
  Restart();
  storage->SaveStorage();
  EXPECT_EQ(host.CountLines(75, "kelvo.xml could not be saved: "), 1u) << "told once";
  EXPECT_TRUE(Contains(Broadcast(), "Storage"));
}

// One call fails, or the process dies there, at a start, at a change of the settings and at new
// bookmarks: what is in force and what is stored is the old or the new, never less.
TEST_F(SettingsFile, NoFaultAndNoDeathCostsSettingsOrBookmarks) {
  durable.Join(files, "kelvo.xml");
  const std::string covered[] = {Plant("a/", kNow - kDay), Plant("a/", kNow - 2 * kDay)};
  const auto cases = [](int age) {
    return "<Case ID='c'>" + Bookmark("b", kNow - (age + 1) * kDay, kNow - (age + 1) * kDay + 9) +
           "</Case>";
  };
  const auto covers = [&](int age) {
    for (const std::string& path : covered) WriteFile(path);
    return !storage->RemoveFile(covered[age], false);
  };
  constexpr int kErrors[] = {EIO, ENOSPC, EMFILE, EACCES};
  const struct {
    const char* what;
    std::function<void()> act;
    int newLapse, newCases;
  } actions[] = {
      {"start", [&] { Restart(); }, 5, 0},
      {"settings",
       [&] {
         Apply("<Storage ID='327680' TimeLapse='7'/>");
         storage->SaveStorage();
       },
       7, 0},
      {"bookmarks", [&] { ApplyCases(cases(1)); }, 5, 1},
  };
  for (int kind = 0; kind < 6; ++kind) {
    const auto& action = actions[kind / 2];
    const bool dies = kind % 2 != 0;
    for (int step = 1, reached = 1; reached >= step; ++step) {
      SCOPED_TRACE(testing::Message()
                   << action.what << (dies ? " dies" : " fails") << " at step " << step);
      durable.Arm(0, false);
      Store("<qDVR><Storage ID='327680' TimeLapse='5'/><Cases ID='393216'>" + cases(0) +
            "</Cases></qDVR>");
      if (kind >= 2) Restart();
      durable.error = kErrors[step % 4];
      durable.Arm(step, dies);
      try {
        action.act();
        storage->ReportStatus(true);  // the next minute
        ASSERT_EQ(storage->Lapse().timeLapse, action.newLapse);
        ASSERT_TRUE(covers(action.newCases));
      } catch (const qv::kelvo::Died&) {
      }
      reached = durable.steps;
      const bool died = dies && reached >= step;
      durable.Arm(0, false);
      files.ClearFaults();
      Restart();
      ASSERT_TRUE(storage->Lapse().timeLapse == action.newLapse ||
                  (died && storage->Lapse().timeLapse == 5));
      ASSERT_TRUE(covers(action.newCases) || (died && covers(0)));
      ASSERT_FALSE(covers(0) && covers(1));
      for (const char* suffix : {".bak", ".pending", ".damaged1"}) {
        ASSERT_FALSE(Exists(std::string("kelvo.xml") + suffix)) << suffix;
      }
    }
  }
}

// The file can't be read for a time: nothing is deleted and nothing written over until it can.
TEST_F(SettingsFile, AFileThatCannotBeReadIsWaitedFor) {
  const std::string path = Plant("a/", kNow - kDay);
  Store(WithBookmark("<Storage ID='327680' TimeLapse='5' ContentAge='6'/>"));
  const std::string text = Stored();
  drives.Fill();
  files.Set({qv::kelvo::FileCall::Open, 1, qv::kelvo::FileFault::kForGood, EMFILE, 0, "kelvo.xml"});
  Restart();
  Apply("<Storage ID='327680' TimeLapse='7'/>");
  storage->SaveStorage();
  storage->ReportStatus(true);
  EXPECT_EQ(storage->GetRecordVolume(&manager, 1), "");
  EXPECT_FALSE(storage->KickSweeper(false));
  EXPECT_EQ(Stored(), text);
  EXPECT_EQ(host.CountLines(75, "kelvo.xml is there but can't be read"), 1u) << "told once";
  EXPECT_TRUE(Contains(Broadcast(), R"(Name="a/")"));
  files.ClearFaults();
  storage->ReportStatus(true);
  EXPECT_EQ(storage->Lapse().timeLapse, 7) << "what came meanwhile is newer";
  EXPECT_TRUE(Contains(Stored(), R"(TimeLapse="7" ContentAge="6")")) << Stored();
  EXPECT_EQ(storage->GetRecordVolume(&manager, 1), "");
  EXPECT_TRUE(Exists(path)) << "its bookmark is in force";
}

TEST_F(SettingsFile, TheFirstDriveToComeBringsTheSettings) {
  const std::string path = Plant("a/", kNow - kDay);
  Store(WithBookmark(
      "<Storage ID='327680' TimeLapse='5'><Drive Name='a/' Enabled='1' Percent='40'/></Storage>"));
  const std::string stored = Stored();
  std::vector<qv::kelvo::FakeDrive> found;
  drives.Change([&](auto& table) { std::swap(table.drives, found); });
  const auto open = [&] {
    storage = std::make_unique<CFileSystem>(core, platform);
    EXPECT_FALSE(storage->LoadStorage());
    storage->ReportStatus(true);
    EXPECT_EQ(Stored(), stored);
    EXPECT_EQ(storage->Lapse().timeLapse, 0);
  };
  const auto known = [&] {
    EXPECT_EQ(storage->Lapse().timeLapse, 5);
    EXPECT_FALSE(storage->RemoveFile(path, false));
    EXPECT_TRUE(Contains(Stored(), R"(<Drive Name="a/" Enabled="1" Percent="40")")) << Stored();
  };
  open();
  const ParsedXml archives(
      "<Archives><Portal><Target Enabled='5' ID='7'><Partition MountPoint='a/'/>"
      "</Target></Portal></Archives>");
  EXPECT_TRUE(storage->ApplyArchivesXml(archives.Root()));
  known();
  // A listing that failed is asked for again; one that found nothing isn't.
  Store(stored);
  drives.Change([](auto& table) { table.drivesError = EMFILE; });
  open();
  drives.Change([&](auto& table) { table = {found, 0, 0}; });
  storage->ReportStatus(true);
  EXPECT_EQ(storage->Volumes().ListUsable().size(), 2u);
  known();
}

TEST_F(SettingsFile, TextIsUtf8WhateverItCameAs) {
  const std::pair<const char*, const char*> rows[] = {
      {"<qDVR><Case ID='&#xE9;\xC3\xA9'", "\xC3\xA9\xC3\xA9"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?><qDVR><Case ID='\xE9\x80'",
       "\xC3\xA9\xE2\x82\xAC"},
      {"<qDVR><Case ID='\xE9\xC3\xA9'", "\xC3\xA9\xC3\xA9"},
      {"\xEF\xBB\xBF<?xml encoding=\"latin1\"?><qDVR><Case ID='\xC3\xA9'", "\xC3\xA9"},
      {"<?xml version='1.0' encoding='UTF-16'?><qDVR><Case ID='\xC3\xA9'", "\xC3\xA9"},
  };
  drives.Add("caf\xE9/");
  drives.faulty = "caf\xE9/";  // there is no such directory
  Restart();
  for (const auto& [message, id] : rows) {
    const ParsedXml xml(std::string(message) + "/></qDVR>");
    for (int i = 0; i < 2; ++i) {
      durable.Arm(0, false);
      storage->ApplyCasesXml(PrintXml(xml.Root()), false);
      EXPECT_EQ(durable.steps != 0, i == 0) << "the same again is no save";
    }
    Apply("<Storage ID='327680'><Drive Name='caf\xC3\xA9/' Enabled='0'/></Storage>");
    storage->SaveStorage();
    EXPECT_TRUE(Contains(Stored(), "<Case ID=\"" + std::string(id) + "\" />")) << Stored();
    EXPECT_TRUE(Contains(Stored(), "<Drive Name=\"caf\xC3\xA9/\" Enabled=\"0\"")) << Stored();
    Restart();
    EXPECT_EQ(storage->Volumes().ListUsable(), (std::vector<std::string>{"a/", "b/"}));
  }
}

// By a message, the file, a start and the report of the sizes.
TEST_F(SettingsFile, AnyTextOfABookmarkSurvivesTheWholeWay) {
  const std::pair<std::string, std::string> pieces[] = {
      {"&#xE9;", "\xC3\xA9"}, {"&#128512;", "\xF0\x9F\x98\x80"},
      {"&quot;", "\""},       {"'", "'"},
      {"&lt;", "<"},          {"&amp;#65;", "&#65;"},
      {"&#10;\t", "\n\t"},    {"&#1;\x7F", "\1\x7F"},
      {"  ", "  "},           {"\xEF\xBB\xBF]]>--&gt;", "\xEF\xBB\xBF]]>-->"}};
  std::string cases;
  std::set<std::string> expected;
  std::mt19937 random(1);
  for (int i = 0; i < 300; ++i) {
    std::string told, id;
    for (auto left = 1 + random() % 6; left > 0; --left) {
      const auto& [text, value] = pieces[random() % std::size(pieces)];
      told += text;
      id += value;
    }
    expected.insert(id);
    cases += "<Case ID=\"" + told + "\"><Bookmark ID='b' Start='1' End='2'/></Case>";
  }
  Restart();
  ApplyCases(cases);
  Restart();
  Apply("<Storage ID='327680' TimeLapse='3'/>");
  storage->SaveStorage();  // read and printed once more
  const auto ids = [](const ParsedXml& xml) {
    std::set<std::string> found;
    for (const TiXmlElement& element : Children(xml.Root(), "Case")) {
      found.insert(ReadText(element, "ID"));
    }
    return found;
  };
  const std::string stored = Stored();
  const ParsedXml file(stored.substr(stored.find("<Cases")));
  EXPECT_EQ(ids(file), expected);
  EXPECT_EQ(ids(ParsedXml(PrintXml(BookmarkSizes(ReadCases(PrintXml(file.Root()), {}))))),
            expected);
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
