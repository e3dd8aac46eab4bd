#include "search/SearchRequest.h"

#include <functional>

#include "host/DeviceNest.h"
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

// Reads the inputs of a device in one context.
void ParseContext(const TiXmlElement& device, const TiXmlElement& element,
                  const std::function<RequestKey(std::uint32_t input)>& keyOf,
                  SearchRequest& request) {
  if (const TiXmlElement* video = element.FirstChildElement("Video")) {
    ForEachNumbered(*video, "Input", [&](std::int32_t number, const TiXmlElement& input) {
      const RequestKey key = keyOf(static_cast<std::uint32_t>(number));
      request.keys.insert(key);
      for (const TiXmlElement& child : Children(input, "Request")) {
        int moment = 0;
        if (ReadInt(child, "Frame", moment)) request.frameRequests[key].push_back(moment);
      }
    });
  }
  // Audio belongs to the device and is searched under each of its contexts.
  if (const TiXmlElement* audio = device.FirstChildElement("Audio")) {
    ForEachNumbered(*audio, "Input", [&](std::int32_t number, const TiXmlElement&) {
      request.keys.insert(keyOf(static_cast<std::uint32_t>(number) + kFirstAudioInput));
    });
  }
}

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
  ForEachDevice(*root, [&](std::uint32_t id, std::int32_t number, const TiXmlElement& device) {
    ForEachContext(device, [&](std::int32_t context, const TiXmlElement& element) {
      const auto keyOf = [&](std::uint32_t input) {
        return MakeRequestKey(id, static_cast<std::uint32_t>(number),
                              static_cast<std::uint32_t>(context), input);
      };
      ParseContext(device, element, keyOf, request);
    });
  });
  if (!request.searchLocal) {
    LogPrintf(LogInfo, "Received local client search request (see audit for details).");
  }
  return request;
}

}  // namespace qvsvr::kelvo
