#include "tests/plugin/SearchFixture.h"

#include "hostkit/SearchXml.h"

namespace plugintest {

constexpr std::uint32_t kRequestId = 0x5EA4C4;

PlayedFrame::PlayedFrame(const KelvoHostRequest& request) : event(request) {
  const auto& header = event.u.Header;
  type = header.FrameType;
  flags = header.FrameFlags;
  timeMs = std::int64_t{header.Seconds} * 1000 + header.Milliseconds;
  userData.assign(header.Extension, header.Extension + header.ExtensionLength);
  const auto* const bytes = static_cast<const std::uint8_t*>(request.Payload);
  if (header.PayloadOffset < request.Length) {
    payload.assign(bytes + header.PayloadOffset, bytes + request.Length);
  }
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
  std::vector<const PsFrame*> frames;
  for (std::size_t n = 0; n < played.size(); ++n) {
    frames.push_back(&played[n]);
    EXPECT_EQ(played[n].event.u.Header.Size, sizeof(KelvoFrameHeader));
    EXPECT_EQ(played[n].event.u.Header.Version, 1u);
    EXPECT_EQ(played[n].event.Source, given[n].provider) << "frame " << n;
  }
  ExpectFrames(frames, given);
}

}  // namespace plugintest
