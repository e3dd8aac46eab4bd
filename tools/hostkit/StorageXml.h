#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hostkit/ConfigXml.h"

namespace hostkit {

// Storage settings to change; what is unset stays as it is.
struct StorageSettings {
  struct Drive {
    std::string name;  // as the plug-in names it
    std::optional<int> percent;
    std::optional<bool> enabled;
  };
  std::optional<int> timeLapseMs;
  std::optional<int> contentAgeSeconds;
  std::optional<bool> cleanupRemoves;
  // Global rule: 0 none, above 0 days to keep at least, below 0 days to expire after.
  std::optional<int> expirationDays;
  std::vector<Drive> drives;

  [[nodiscard]] bool Empty() const;
};
[[nodiscard]] std::string StorageDelta(const StorageSettings& settings);

// Footage to protect: everything of these cameras from `start` to `end`, seconds since 1970.
struct Bookmark {
  std::string caseId, id;
  std::int64_t start = 0, end = 0;
  std::vector<CameraConfig> cameras;
};
// A full configuration that also gives the bookmarks, which take the place of all earlier ones.
[[nodiscard]] std::string WithBookmarks(const std::string& configuration,
                                        const std::vector<Bookmark>& bookmarks);

// Actions: asks for space under a key of the host's own, and gives it up.
[[nodiscard]] std::string ReserveAction(const std::string& guid, int gigabytes);
[[nodiscard]] std::string GiveUpAction(const std::string& guid);

}  // namespace hostkit
