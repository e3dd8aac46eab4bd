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
  static std::string Stored() {
    std::ifstream file("kelvo.xml", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }
};

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
      std::ofstream("kelvo.xml") << "<qDVR><Storage ID='327680' TimeLapse='5'/><Cases ID='393216'>"
                                 << cases(0) << "</Cases></qDVR>";
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

}  // namespace
}  // namespace qvsvr::kelvo
