#include "tests/plugin/SearchFixture.h"

#include <regex>

namespace plugintest {

constexpr std::uint32_t kRequestId = 0x5EA4C4;

std::vector<long> Heard::All(const std::string& attribute) const {
  std::vector<long> values;
  const std::regex pattern("<Result[^>]* " + attribute + "=\"(-?[0-9]+)\"");
  for (const auto& text : results) {
    for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at) {
      values.push_back(std::stol((*at)[1]));
    }
  }
  return values;
}

Ask& Ask::Video(const CameraConfig& camera, int input, const std::vector<std::int64_t>& moments) {
  inputs += "<Devices ID=\"" + std::to_string(camera.provider) + "\"><Device Number=\"" +
            std::to_string(camera.device) + "\"><Video><Input Number=\"" + std::to_string(input) +
            "\">";
  for (const auto moment : moments) inputs += "<Request Frame=\"" + std::to_string(moment) + "\"/>";
  inputs += "</Input></Video></Device></Devices>";
  return *this;
}

std::string Ask::Xml() const {
  return "<qDVR Type=\"" + std::to_string(type) + "\" Start=\"" + std::to_string(start) +
         "\" End=\"" + std::to_string(end) + "\" Resolution=\"" + std::to_string(resolution) +
         "\">" + inputs + "</qDVR>";
}

SearchTest::SearchTest() {
  host->onSearch = [this](const KelvoHostRequest& request) {
    Hear(request);
    return 0u;
  };
}

void SearchTest::Hear(const KelvoHostRequest& request) {
  EXPECT_EQ(request.Class, KELVO_CLASS_SEARCH);
  EXPECT_EQ(request.RequestId, kRequestId);
  EXPECT_EQ(request.Size, sizeof request);
  const auto* bytes = static_cast<const char*>(request.Payload);
  switch (request.SubCode) {
    case KELVO_SUB_SEARCH_FRAME:
      told.order += request.Length == 0 ? 'E' : 'F';
      told.frames.push_back({request, std::string(bytes, request.Length)});
      break;
    case KELVO_SUB_SEARCH_RESULT:
      told.order += 'R';
      told.results.emplace_back(bytes, request.Length);
      break;
    default:
      EXPECT_EQ(request.SubCode, KELVO_SUB_SEARCH_PROGRESS);
      EXPECT_EQ(request.Length, 0u);
      told.order += 'P';
  }
}

Heard SearchTest::Search(const Ask& ask) {
  told = {};
  host->Read(ask.Xml(), kRequestId);
  EXPECT_TRUE(bundle.files.WaitForOpenFiles(openWriters)) << "a search left a file open";
  return std::move(told);
}

void SearchTest::Record(const CameraConfig& camera, std::span<const Frame> frames) {
  bundle.clock.SetNow(TimeOf(frames.front()));
  Start({camera});
  GiveInTime(frames);
  Finish();
  Start();  // again, for the search
  openWriters = 0;
}

void ExpectPlayed(const std::vector<PlayedFrame>& played, std::span<const Frame> given) {
  ASSERT_EQ(played.size(), given.size());
  for (std::size_t n = 0; n < given.size(); ++n) {
    SCOPED_TRACE("frame " + std::to_string(n));
    const KelvoFrameHeader& header = played[n].event.u.Header;
    const KelvoFrameHeader& wanted = given[n].header;
    EXPECT_EQ(header.Size, sizeof header);
    EXPECT_EQ(header.Version, 1u);
    EXPECT_EQ(played[n].TimeMs(), TimeOf(given[n]));
    EXPECT_EQ(header.FrameType, wanted.FrameType);
    EXPECT_EQ(header.FrameFlags, wanted.FrameFlags & 0xE0u);
    EXPECT_EQ(played[n].event.Source, given[n].provider);
    const testsupport::Bytes metadata(header.Extension, header.Extension + header.ExtensionLength);
    EXPECT_EQ(metadata, KeptMetadata(wanted));
    ASSERT_EQ(played[n].Payload(), given[n].payload);
  }
}

}  // namespace plugintest
