#include "search/SearchRequest.h"

#include "host/Log.h"
#include "host/Xml.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kFirstAudioInput;
using qv::kelvo::MakeRequestKey;

void ParseTargets(const TiXmlElement& targets, SearchRequest& request) {
  request.allArchives = false;
  for (const TiXmlElement& archive : Children(targets, "Archive")) {
    int search = 0, id = 0;
    if (ReadInt(archive, "Search", search) && ReadInt(archive, "ID", id)) {
      request.archives.emplace(id, search != 0);
    }
  }
  const TiXmlElement* local = targets.FirstChildElement("Local");
  int search = 0;
  if (local != nullptr && ReadInt(*local, "Search", search)) request.searchLocal = search != 0;
}

// Reads the inputs of one device.
class DeviceInputs {
 public:
  DeviceInputs(const TiXmlElement& deviceElement, int providerId, int deviceNumber,
               SearchRequest& result)
      : device(deviceElement),
        provider(static_cast<std::uint32_t>(providerId)),
        number(static_cast<std::uint32_t>(deviceNumber)),
        request(result) {}

  void Parse() {
    ParseContext(device, 0);
    for (const TiXmlElement& context : Children(device, "Context")) {
      int contextNumber = 0;
      if (ReadInt(context, "Number", contextNumber)) ParseContext(context, contextNumber);
    }
  }

 private:
  [[nodiscard]] RequestKey Key(int context, std::uint32_t input) const {
    return MakeRequestKey(provider, number, static_cast<std::uint32_t>(context), input);
  }

  void ParseContext(const TiXmlElement& element, int context) {
    int input = 0;
    if (const TiXmlElement* video = element.FirstChildElement("Video")) {
      for (const TiXmlElement& child : Children(*video, "Input")) {
        if (!ReadInt(child, "Number", input)) continue;
        const RequestKey key = Key(context, static_cast<std::uint32_t>(input));
        request.keys.insert(key);
        AddMoments(child, key);
      }
    }
    // Audio belongs to the device and is searched under each of its contexts.
    if (const TiXmlElement* audio = device.FirstChildElement("Audio")) {
      for (const TiXmlElement& child : Children(*audio, "Input")) {
        if (!ReadInt(child, "Number", input)) continue;
        request.keys.insert(Key(context, static_cast<std::uint32_t>(input) + kFirstAudioInput));
      }
    }
  }

  void AddMoments(const TiXmlElement& input, RequestKey key) {
    for (const TiXmlElement& child : Children(input, "Request")) {
      int moment = 0;
      if (ReadInt(child, "Frame", moment)) request.frameRequests[key].push_back(moment);
    }
  }

  const TiXmlElement& device;
  const std::uint32_t provider;
  const std::uint32_t number;
  SearchRequest& request;
};

}  // namespace

SearchRequest ParseSearchRequest(const TiXmlDocument& document) {
  SearchRequest request;
  const TiXmlElement* root = document.FirstChildElement(kRootName);
  if (root == nullptr || !ReadInt(*root, "Type", request.type) ||
      !ReadInt(*root, "Start", request.start) || !ReadInt(*root, "End", request.end)) {
    return request;
  }
  (void)ReadInt(*root, "Resolution", request.resolution);
  if (const TiXmlElement* targets = root->FirstChildElement("Targets")) {
    ParseTargets(*targets, request);
  }
  for (const TiXmlElement& provider : Children(*root, "Devices")) {
    int id = 0;
    if (!ReadInt(provider, "ID", id)) continue;
    for (const TiXmlElement& device : Children(provider, "Device")) {
      int number = 0;
      if (ReadInt(device, "Number", number)) DeviceInputs(device, id, number, request).Parse();
    }
  }
  if (!request.searchLocal) {
    LogPrintf(LogInfo, "Received local client search request (see audit for details).");
  }
  return request;
}

}  // namespace qvsvr::kelvo
