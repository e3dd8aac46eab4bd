#include "tests/plugin/SearchFixture.h"

#include "hostkit/SearchXml.h"

namespace plugintest {

constexpr std::uint32_t kRequestId = 0x5EA4C4;

PlayedFrame::PlayedFrame(const KelvoHostRequest& request)
    : event(request),
      timeMs(std::int64_t{request.u.Header.Seconds} * 1000 + request.u.Header.Milliseconds) {
  const std::uint32_t offset = request.u.Header.PayloadOffset;
  if (offset >= request.Length) return;
  payload.assign(static_cast<const char*>(request.Payload) + offset, request.Length - offset);
}

std::string Ask(int type, std::int64_t start, std::int64_t end,
                const std::vector<CameraConfig>& cameras,
                const std::vector<std::int64_t>& moments) {
  hostkit::SearchRequest request;
  request.type = type;
  request.start = start;
  request.end = end;
  for (const auto& camera : cameras) {
    auto& input = request.inputs.emplace_back();
    input.provider = camera.provider;
    input.device = camera.device;
    input.moments = moments;
  }
  return hostkit::RequestXml(request);
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
  if (request.SubCode == KELVO_SUB_SEARCH_FRAME) {
    told.order += request.Length == 0 ? 'E' : 'F';
    told.frames.emplace_back(request);
  } else if (request.SubCode == KELVO_SUB_SEARCH_RESULT) {
    told.order += 'R';
    told.results.emplace_back(static_cast<const char*>(request.Payload), request.Length);
  } else {
    EXPECT_EQ(request.SubCode, KELVO_SUB_SEARCH_PROGRESS);
    EXPECT_EQ(request.Length, 0u);
    told.order += 'P';
  }
}

Heard SearchTest::Search(const std::string& request) {
  told = {};
  host->Read(request, kRequestId);
  EXPECT_TRUE(bundle.files.WaitForOpenFiles(openWriters)) << "a search left a file open";
  return std::move(told);
}

void SearchTest::Record(const CameraConfig& camera, std::span<const Frame> frames) {
  bundle.clock.SetNow(TimeOf(frames.front()));
  Start({camera});
  GiveInTime(frames);
  Finish();
  Start();
}

void ExpectPlayed(std::span<const PlayedFrame> played, std::span<const Frame> given) {
  ASSERT_EQ(played.size(), given.size());
  for (std::size_t n = 0; n < given.size(); ++n) {
    SCOPED_TRACE("frame " + std::to_string(n));
    const KelvoFrameHeader& header = played[n].event.u.Header;
    const KelvoFrameHeader& wanted = given[n].header;
    EXPECT_EQ(header.Size, sizeof header);
    EXPECT_EQ(header.Version, 1u);
    EXPECT_EQ(played[n].timeMs, TimeOf(given[n]));
    EXPECT_EQ(header.FrameType, wanted.FrameType);
    EXPECT_EQ(header.FrameFlags, wanted.FrameFlags & 0xE0u);
    EXPECT_EQ(played[n].event.Source, given[n].provider);
    const testsupport::Bytes metadata(header.Extension, header.Extension + header.ExtensionLength);
    EXPECT_EQ(metadata, KeptMetadata(wanted));
    ASSERT_TRUE(played[n].payload == given[n].payload);
  }
}

}  // namespace plugintest
