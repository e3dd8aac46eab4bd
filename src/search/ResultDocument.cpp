#include "search/ResultDocument.h"

#include <cstddef>

#include "host/Log.h"
#include "host/Xml.h"

namespace qvsvr::kelvo {
namespace {

constexpr int kThumbnailAtMoments = 2;
constexpr int kThumbnailPerBucket = 1;
constexpr int kPixelsPerUnit = 16;
constexpr std::uint16_t kNoBufferSize = 65535;

TiXmlElement* AddChild(TiXmlElement& parent, const char* name) {
  auto* child = new TiXmlElement(name);
  parent.LinkEndChild(child);
  return child;
}

TiXmlElement* AddNumbered(TiXmlElement& parent, const char* name, std::uint32_t number) {
  TiXmlElement* child = AddChild(parent, name);
  child->SetAttribute("Number", static_cast<int>(number));
  return child;
}

int ThumbnailMode(const SearchRequest& request) {
  if (!request.frameRequests.empty()) return kThumbnailAtMoments;
  return request.IsThinned() ? kThumbnailPerBucket : 0;
}

bool MakesSense(const ResultValues& values) {
  return values.first >= 0 && values.last >= values.first;
}

}  // namespace

ResultDocument::ResultDocument(const SearchRequest& request) : listing(request.type == 0) {
  root = BeginXml(document);
  root->SetAttribute("Type", request.type);
  if (!listing) root->SetAttribute("Thumbnail", ThumbnailMode(request));
}

void ResultDocument::OpenInput(RequestKey input) {
  using namespace qv::kelvo;
  if (current == input) return;
  const bool newProvider = !current || KeyProvider(*current) != KeyProvider(input);
  const bool newDevice = newProvider || KeyDevice(*current) != KeyDevice(input);
  const bool newContext = newDevice || KeyContext(*current) != KeyContext(input);
  if (newProvider) {
    provider = AddChild(*root, "Devices");
    provider->SetAttribute("ID", static_cast<int>(KeyProvider(input)));
  }
  if (newDevice) device = AddNumbered(*provider, "Device", KeyDevice(input));
  if (newContext) {
    const std::uint32_t number = KeyContext(input);
    TiXmlElement* parent = number == 0 ? device : AddNumbered(*device, "Context", number);
    video = AddChild(*parent, "Video");
    audio = AddChild(*parent, "Audio");
  }
  open = AddNumbered(IsAudioKey(input) ? *audio : *video, "Input", input & 31u);
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
  TiXmlElement* result = AddChild(*open, "Result");
  result->SetAttribute("Start", static_cast<int>(values.first));
  result->SetAttribute("End", static_cast<int>(values.last));
  result->SetAttribute("Count", static_cast<int>(values.count));
  result->SetAttribute("Flags", values.flags);
  if (listing) return;
  result->SetAttribute("Standard", key.standard);
  result->SetAttribute("StreamID", static_cast<int>(stream));
  if (!qv::kelvo::IsAudioKey(input)) {
    result->SetAttribute("Width", key.width16 * kPixelsPerUnit);
    result->SetAttribute("Height", key.height16 * kPixelsPerUnit);
  } else if (key.bufSizeSamples != kNoBufferSize) {
    result->SetAttribute("SampleRate", key.sampleRate);
    result->SetAttribute("BufSizeSamples", key.bufSizeSamples);
  }
}

std::string ResultDocument::Print() const {
  return PrintXml(document);
}

}  // namespace qvsvr::kelvo
