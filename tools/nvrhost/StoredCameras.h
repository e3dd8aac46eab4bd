#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hostkit/SearchXml.h"

namespace nvrhost {

// A camera that has recordings.
struct StoredCamera {
  std::string name;
  std::uint32_t provider = 0;  // ID of the Devices element
  int device = 0, context = 0, channel = 0;
  bool audio = false;

  [[nodiscard]] hostkit::SearchInput Video() const;
  [[nodiscard]] hostkit::SearchInput Audio() const;
  [[nodiscard]] bool Has(const hostkit::SearchInput& input) const;
  // Id of its video or audio provider, as frames carry it on their way in.
  [[nodiscard]] std::uint32_t ProviderId(bool ofAudio) const;
};

struct Stored {
  std::vector<StoredCamera> cameras;              // by context, provider, device and channel
  std::int64_t beginSeconds = 0, endSeconds = 0;  // about when, by the files' names; generous
};

// What lies below a directory of drives, by the heads of its files. A host would know its cameras;
// this one finds them. Throws std::runtime_error when there is none.
[[nodiscard]] Stored FindStored(const std::string& drives);

// The same for known media files, which lie in `place`. Those that aren't there tell only when.
[[nodiscard]] Stored StoredIn(const std::vector<std::string>& mediaFiles, const std::string& place);

// Those that the user names, by number (from 1) or by name; all for none. Throws
// std::runtime_error.
[[nodiscard]] std::vector<StoredCamera> ChooseCameras(const Stored& stored,
                                                      const std::vector<std::string>& chosen);

// Video and audio inputs of the cameras, for a request.
[[nodiscard]] std::vector<hostkit::SearchInput> InputsOf(const std::vector<StoredCamera>& cameras);

}  // namespace nvrhost
