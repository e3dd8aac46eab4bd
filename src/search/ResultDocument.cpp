#include "search/ResultDocument.h"

#include <charconv>
#include <cstddef>
#include <iterator>
#include <utility>

#include "host/Log.h"
#include "host/Xml.h"

namespace qvsvr::kelvo {
namespace {

constexpr int kThumbnailAtMoments = 2;
constexpr int kThumbnailPerBucket = 1;
// Text that a record usually takes at most.
constexpr std::size_t kListingBytes = 80;
constexpr std::size_t kPlaybackBytes = 160;
constexpr int kPixelsPerUnit = 16;
constexpr std::uint16_t kNoBufferSize = 65535;

int ThumbnailMode(const SearchRequest& request) {
  if (!request.frameRequests.empty()) return kThumbnailAtMoments;
  return request.IsThinned() ? kThumbnailPerBucket : 0;
}

bool MakesSense(const ResultValues& values) {
  return values.first >= 0 && values.last >= values.first;
}

}  // namespace

ResultDocument::ResultDocument(const SearchRequest& request, std::size_t records)
    : listing(request.type == 0) {
  text.reserve(records * (listing ? kListingBytes : kPlaybackBytes));
  text = "<?xml ?>";
  Open(kRootName);
  Attribute("Type", request.type);
  if (!listing) Attribute("Thumbnail", ThumbnailMode(request));
}

void ResultDocument::Open(const char* name) {
  if (inStartTag) text += '>';
  text.append("<").append(name);
  elements.push_back(name);
  inStartTag = true;
}

void ResultDocument::OpenNumbered(const char* name, std::uint32_t number) {
  Open(name);
  Attribute("Number", static_cast<std::int32_t>(number));
}

void ResultDocument::Attribute(const char* name, std::int32_t value) {
  char digits[16];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  text.append(" ").append(name).append("=\"").append(digits, end).append("\"");
}

void ResultDocument::Close() {
  if (inStartTag) {
    text += " />";
  } else {
    text.append("</").append(elements.back()).append(">");
  }
  elements.pop_back();
  inStartTag = false;
}

void ResultDocument::OpenMedia(bool audio) {
  if (audio == inAudio) return;
  Close();
  Open("Audio");
  inAudio = true;
}

void ResultDocument::CloseContext() {
  OpenMedia(true);
  Close();
  if (qv::kelvo::KeyContext(*current) != 0) Close();
}

void ResultDocument::OpenInput(RequestKey input) {
  using namespace qv::kelvo;
  if (current == input) return;
  const bool newProvider = !current || KeyProvider(*current) != KeyProvider(input);
  const bool newDevice = newProvider || KeyDevice(*current) != KeyDevice(input);
  const bool newContext = newDevice || KeyContext(*current) != KeyContext(input);
  if (current) {
    Close();  // the Input
    if (newContext) CloseContext();
    if (newDevice) Close();
    if (newProvider) Close();
  }
  if (newProvider) {
    Open("Devices");
    Attribute("ID", static_cast<std::int32_t>(KeyProvider(input)));
  }
  if (newDevice) OpenNumbered("Device", KeyDevice(input));
  if (newContext) {
    if (const std::uint32_t number = KeyContext(input); number != 0) {
      OpenNumbered("Context", number);
    }
    Open("Video");
    inAudio = false;
  }
  OpenMedia(IsAudioKey(input));
  OpenNumbered("Input", input & 31u);
  current = input;
}

void ResultDocument::Add(RequestKey input, const ResultKey& key, const ResultValues& values) {
  OpenInput(input);
  const qv::kelvo::StreamID stream =
      qv::kelvo::MakeStreamID(qv::kelvo::KeyContext(input), qv::kelvo::KeyProvider(input),
                              qv::kelvo::KeyDevice(input), key.streamId);
  if (!MakesSense(values)) {
    LogPrintf(LogWarning, "SEARCH result out of range, start:%zd, end:%zd stmid:%lu",
              static_cast<std::ptrdiff_t>(values.first), static_cast<std::ptrdiff_t>(values.last),
              static_cast<unsigned long>(stream));
  }
  Open("Result");
  Attribute("Start", static_cast<std::int32_t>(values.first));
  Attribute("End", static_cast<std::int32_t>(values.last));
  Attribute("Count", static_cast<std::int32_t>(values.count));
  Attribute("Flags", values.flags);
  if (!listing) {
    Attribute("Standard", key.standard);
    Attribute("StreamID", static_cast<std::int32_t>(stream));
    if (!qv::kelvo::IsAudioKey(input)) {
      Attribute("Width", key.width16 * kPixelsPerUnit);
      Attribute("Height", key.height16 * kPixelsPerUnit);
    } else if (key.bufSizeSamples != kNoBufferSize) {
      Attribute("SampleRate", key.sampleRate);
      Attribute("BufSizeSamples", key.bufSizeSamples);
    }
  }
  Close();
}

std::string ResultDocument::Finish() {
  if (current) {
    Close();  // the Input
    CloseContext();
  }
  while (!elements.empty()) Close();
  return std::move(text);
}

}  // namespace qvsvr::kelvo
