#include "search/SearchRequest.h"

#include "search/SearchResult.h"

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
  const struct {
    const char* attributes;
    std::int32_t type, start, end, resolution;
    std::size_t keys;
  } cases[] = {
      {"Type='1' Start='5' End='9' Resolution='3'", 1, 5, 9, 3, 1},
      {"Type='1' Start='5'", 1, 5, 0, 0, 0},
      {"Type='x' Start='5' End='9'", 0, 0, 0, 0, 0},
      {"Type='0' Start='-2147483648' End='2147483647' Resolution='-1'", 0, -2147483647 - 1,
       2147483647, -1, 1},
      {"Type='1' Start='2147483648' End='9'", 1, 0, 0, 0, 0},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.attributes);
    const SearchRequest request = Parse("<qDVR " + std::string(test.attributes) +
                                        "><Devices ID='1114112'><Device Number='0'>" + Video(1) +
                                        "</Device></Devices></qDVR>");
    EXPECT_EQ(request.type, test.type);
    EXPECT_EQ(request.start, test.start);
    EXPECT_EQ(request.end, test.end);
    EXPECT_EQ(request.resolution, test.resolution);
    EXPECT_EQ(request.keys.size(), test.keys);
  }
}

TEST_F(Document, KeysNameProviderDeviceContextAndInput) {
  const struct {
    const char* devices;
    std::set<RequestKey> keys;
  } cases[] = {
      {"<Devices ID='1114112'><Device Number='2'><Video><Input "
       "Number='3'/></Video></Device></Devices>",
       {0x01102003}},
      {"<Devices><Device Number='2'><Video><Input Number='3'/></Video></Device></Devices>", {}},
      {"<Devices ID='1114112'><Device><Video><Input Number='3'/></Video></Device></Devices>", {}},
      // Context 0 is the device itself.
      {"<Devices ID='1114112'><Device Number='0'><Video><Input Number='3'/></Video><Context "
       "Number='0'><Video><Input Number='3'/></Video></Context></Device></Devices>",
       {0x01100003}},
      // Audio belongs to every context; one inside a context isn't seen.
      {"<Devices ID='1114112'><Device Number='0'><Audio><Input Number='1'/></Audio><Context "
       "Number='17'><Audio><Input Number='9'/></Audio></Context></Device></Devices>",
       {0x01100021, 0x01100121}},
      // Only the first Video of an element; numbers are cut to their width.
      {"<Devices ID='-1'><Device Number='256'><Video><Input Number='40'/><Input/></Video><Video>"
       "<Input Number='1'/></Video></Device></Devices>",
       {0xFFF00028}},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(
        Parse("<qDVR Type='0' Start='0' End='1'>" + std::string(test.devices) + "</qDVR>").keys,
        test.keys)
        << test.devices;
  }
}

TEST_F(Document, TargetsNarrowTheSearch) {
  const auto parse = [](const std::string& targets) {
    return Parse("<qDVR Type='0' Start='0' End='1'>" + targets + "</qDVR>");
  };
  EXPECT_TRUE(parse("").allArchives);
  EXPECT_TRUE(parse("<Targets/>").searchLocal);
  EXPECT_FALSE(parse("<Targets/>").allArchives);
  const SearchRequest some = parse(
      "<Targets><Archive Search='1' ID='4'/><Archive Search='0' ID='4'/><Archive ID='5'/>"
      "<Archive Search='0' ID='6'/><Local Search='0'/></Targets>");
  EXPECT_EQ(some.archives, (qv::kelvo::ArchiveFilter{{4, true}, {6, false}}));
  EXPECT_FALSE(some.searchLocal);
  EXPECT_EQ(host.CountLines(25, "Received local client search request (see audit for details)."),
            1u);

  // The lists of the search are the plug-in's, less what was left out.
  SearchTargetFileSystem target(files, bundle.platform);
  std::vector<std::string> list;
  target.GetVolumes(list, 3, nullptr);
  EXPECT_EQ(list, files.volumes);
  target.Restrict(some);
  target.GetVolumes(list, 3, nullptr);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(files.lastFilter, some.archives);
}

TEST_F(Document, ResultOpensElementsOnlyWhenTheyChange) {
  SearchRequest request;
  request.type = 1;
  request.end = 10;
  const std::vector<std::pair<RequestKey, int>> found = {{0x01100000, 1}, {0x01100001, 2},
                                                         {0x01100021, 1}, {0x01100200, 1},
                                                         {0x01101200, 1}, {0x02201200, 1}};
  for (const auto& [key, count] : found) request.keys.insert(key);
  request.keys.insert(0x01100005);  // nothing found
  SearchResults results(request);
  for (const auto& [key, count] : found) {
    for (int n = 0; n < count; ++n) {
      qv::kelvo::CFileInfo info;
      info.id = qv::kelvo::MakeStreamID(qv::kelvo::KeyContext(key), qv::kelvo::KeyProvider(key),
                                        qv::kelvo::KeyDevice(key), 0x80);
      const unsigned stream = qv::kelvo::IsAudioKey(key) ? 16 : 0;
      auto& row = info.streamRows[stream];
      row.channel = static_cast<std::uint8_t>(key & 31u);
      row.firstTime = n == 0 ? 100 : 50;
      row.lastTime = 110;
      row.frames = 7;
      row.codec = 4;
      row.width16 = 120;
      row.height16 = 68;
      row.bufSizeSamples = 160;
      row.sampleRate = 8000;
      info.selectedMask = 1u << stream;
      results.AddRows(info, 0);
    }
  }
  const std::string video =
      "<Result Start=\"100\" End=\"110\" Count=\"7\" Flags=\"0\" Standard=\"4\" StreamID=\"ID\" "
      "Width=\"1920\" Height=\"1088\" />";
  const auto with = [](std::string text, const std::string& id, const char* start = "100") {
    text.replace(text.find("100"), 3, start);
    return text.replace(text.find("ID=\"ID\"") + 4, 2, id);
  };
  EXPECT_EQ(
      results.Document(request),
      "<?xml ?><qDVR Type=\"1\" Thumbnail=\"0\"><Devices ID=\"1114112\"><Device "
      "Number=\"0\"><Video>"
      "<Input Number=\"0\">" +
          with(video, "1114112") + "</Input><Input Number=\"1\">" + with(video, "1114112", "50") +
          with(video, "1114112") +
          "</Input></Video><Audio><Input Number=\"1\"><Result Start=\"100\" End=\"110\" "
          "Count=\"7\" "
          "Flags=\"0\" Standard=\"4\" StreamID=\"1114128\" SampleRate=\"8000\" "
          "BufSizeSamples=\"160\" />"
          "</Input></Audio><Context Number=\"2\"><Video><Input Number=\"0\">" +
          with(video, std::to_string(0x20110000)) +
          "</Input></Video><Audio /></Context></Device><Device Number=\"1\"><Context "
          "Number=\"2\"><Video>"
          "<Input Number=\"0\">" +
          with(video, std::to_string(0x20110100)) +
          "</Input></Video><Audio /></Context></Device></Devices><Devices ID=\"2228224\"><Device "
          "Number=\"1\"><Context Number=\"2\"><Video><Input Number=\"0\">" +
          with(video, std::to_string(0x20220100)) +
          "</Input></Video><Audio /></Context></Device></Devices></qDVR>");
}

TEST_F(Document, ThumbnailTellsTheMode) {
  const struct {
    int type, resolution;
    const char* begin;
  } cases[] = {{0, 5, "<?xml ?><qDVR Type=\"0\" />"},
               {1, 9, "<?xml ?><qDVR Type=\"1\" Thumbnail=\"1\" />"},
               {1, 10, "<?xml ?><qDVR Type=\"1\" Thumbnail=\"0\" />"}};
  for (const auto& test : cases) {
    SearchRequest request;
    request.type = test.type;
    request.end = 10;
    request.resolution = test.resolution;
    EXPECT_EQ(SearchResults(request).Document(request), test.begin);
  }
}

TEST_F(Document, BadAndEmptyRequestsEndAtOnce) {
  const std::pair<std::string, const char*> cases[] = {
      {"<qDVR Type='1'", ""}, {"", "P"}, {"<other/>", "P"}, {Repeat(5000, "<a>"), ""}};
  for (const auto& [text, order] : cases) {
    Run(text);
    EXPECT_EQ(Order(), order) << text.substr(0, 20);
  }
  EXPECT_EQ(host.CountLines(0, "Ignoring bad search request from provider 00000007 - "), 2u);
  Run("", 0);
  EXPECT_EQ(Order(), "");
}

}  // namespace
}  // namespace qvsvr::kelvo
