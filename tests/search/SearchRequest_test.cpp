#include "search/SearchRequest.h"

#include "host/Xml.h"
#include "tests/search/SearchFixture.h"

namespace qvsvr::kelvo {
namespace {

using Document = SearchTest;

SearchRequest Parse(const std::string& text) {
  XmlDocument document;
  EXPECT_TRUE(document.ParseText(text)) << text;
  return ParseSearchRequest(document);
}

TEST_F(Document, RequestIsReadAsFarAsItGoes) {
  using Values = std::array<std::int64_t, 5>;
  const std::pair<std::string, Values> cases[] = {
      {"Type='1' Start='5' End='9' Resolution='3'", {1, 5, 9, 3, 1}},
      {"Type='1' Start='5'", {1, 5, 0, 0, 0}},
      {"Type='x' Start='5' End='9'", {}},
      {"Type='0' Start='-2147483648' End='2147483647'", {0, -2'147'483'648, 2'147'483'647, 0, 1}},
      {"Type='1' Start='2147483648' End='9'", {1, 0, 0, 0, 0}},
  };
  for (const auto& [attributes, expected] : cases) {
    const SearchRequest request = Parse("<qDVR " + attributes +
                                        "><Devices ID='1114112'><Device Number='0'><Video><Input "
                                        "Number='1'/></Video></Device></Devices></qDVR>");
    const Values values = {request.type, request.start, request.end, request.resolution,
                           static_cast<std::int64_t>(request.keys.size())};
    EXPECT_EQ(values, expected) << attributes;
  }
}

TEST_F(Document, KeysNameProviderDeviceContextAndInput) {
  const std::string video = "<Video><Input Number='3'/></Video>";
  const std::pair<std::string, std::set<RequestKey>> cases[] = {
      {"<Devices><Device Number='2'>" + video + "</Device></Devices>", {}},
      // Context 0 is the device itself.
      {"<Devices ID='1114112'><Device>" + video + "</Device><Device Number='2'>" + video +
           "<Context Number='0'>" + video + "</Context></Device></Devices>",
       {0x01102003}},
      // Audio belongs to every context; one inside a context isn't seen.
      {"<Devices ID='1114112'><Device Number='0'><Audio><Input Number='1'/></Audio><Context "
       "Number='17'><Audio><Input Number='9'/></Audio></Context></Device></Devices>",
       {0x01100021, 0x01100121}},
      // Only the first Video of an element; numbers are cut to their width.
      {"<Devices ID='-1'><Device Number='256'><Video><Input Number='40'/><Input/></Video>" + video +
           "</Device></Devices>",
       {0xFFF00028}},
  };
  for (const auto& [devices, keys] : cases) {
    EXPECT_EQ(Parse("<qDVR Type='0' Start='0' End='1'>" + devices + "</qDVR>").keys, keys)
        << devices;
  }
}

TEST_F(Document, TargetsNarrowTheSearch) {
  Write(Shots(kStart, 1000, "IPP"));
  const auto framesOf = [&](const std::string& targets) {
    std::string request = Request(1, kSecond0, kSecond0 + 10, 0, {Video(0)});
    Run(request.insert(request.find("<Devices"), targets));
    return Played().size();
  };
  EXPECT_EQ(framesOf("<Targets/>"), 3u);
  EXPECT_TRUE(files.lastFilter.empty());
  EXPECT_EQ(framesOf("<Targets><Archive Search='1' ID='4'/><Archive Search='0' ID='4'/><Archive "
                     "ID='5'/><Archive Search='0' ID='6'/><Local Search='0'/></Targets>"),
            0u);
  EXPECT_EQ(files.lastFilter, (qv::kelvo::ArchiveFilter{{4, true}, {6, false}}));
}

TEST_F(Document, ResultOpensElementsOnlyWhenTheyChange) {
  Write({{1, 1, kStart}, {17, 0, kStart}});
  Write({{1, 1, kStart + 20'000}});
  for (const StreamID id : {0x201100FFu, 0x201101FFu, 0x202201FFu}) Write({{0, 1, kStart}}, id);
  Run(Request(1, kSecond0, kSecond0 + 60, 60,
              {Video(1),
               Video(5),  // nothing found
               Audio(1),
               {0x00110000, 0, 2, false, 0, {}},
               {0x00110000, 1, 2, false, 0, {}},
               {0x00220000, 1, 2, false, 0, {}}}));
  const auto result = [](int id, std::int64_t start = kSecond0) {
    const std::string second = std::to_string(start);
    return "<Result Start=\"" + second + "\" End=\"" + second +
           R"(" Count="1" Flags="0" Standard=")" + ((id & 16) != 0 ? '1' : '2') +
           R"(" StreamID=")" + std::to_string(id) +
           ((id & 16) != 0 ? R"(" SampleRate="8000" BufSizeSamples="160" />)"
                           : R"(" Width="1920" Height="1088" />)");
  };
  EXPECT_EQ(
      ResultText(),
      R"(<?xml ?><qDVR Type="1" Thumbnail="0"><Devices ID="1114112"><Device Number="0"><Video>)"
      R"(<Input Number="1">)" +
          result(0x00110001) + result(0x00110001, kSecond0 + 20) +
          R"(</Input></Video><Audio><Input Number="1">)" + result(0x00110011) +
          R"(</Input></Audio><Context Number="2"><Video><Input Number="0">)" + result(0x20110000) +
          R"(</Input></Video><Audio /></Context></Device><Device Number="1"><Context Number="2">)"
          R"(<Video><Input Number="0">)" +
          result(0x20110100) +
          R"(</Input></Video><Audio /></Context></Device></Devices><Devices ID="2228224"><Device )"
          R"(Number="1"><Context Number="2"><Video><Input Number="0">)" +
          result(0x20220100) + "</Input></Video><Audio /></Context></Device></Devices></qDVR>");
}

TEST_F(Document, BadAndEmptyRequestsEndAtOnce) {
  const std::pair<std::string, const char*> cases[] = {
      {"<qDVR Type='1'", ""}, {"", "P"}, {"<other/>", "P"}, {Repeat(5000, "<a>"), ""}};
  for (const auto& [text, order] : cases) {
    Run(text);
    EXPECT_EQ(Order(), order) << text.substr(0, 20);
  }
  Run("", 0);
  EXPECT_EQ(Order(), "");
}

}  // namespace
}  // namespace qvsvr::kelvo
