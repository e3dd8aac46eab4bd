#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "hostkit/StorageXml.h"

namespace nvrhost {

// What a user may ask of the storage; shared by the verbs that record and that only set.
struct StorageOptions {
  std::vector<std::string> use;  // DRIVE=PERCENT
  std::vector<std::string> enable, disable;
  int contentAgeSeconds = -1;
  std::string cleanup;
  int keepDays = -1, expireDays = -1;
  std::vector<std::string> cameraKeep, cameraExpire;  // [CAMERA=]DAYS
  std::vector<std::string> bookmarks;                 // [CAMERA:]FROM/TO
  bool noBookmarks = false;
  std::vector<int> reserveGB;
};
enum class CameraRules { No, Yes };  // whether the verb configures cameras
void AddStorageOptions(CLI::App& command, StorageOptions& options, CameraRules rules);

// The settings that the options name, for the drives below `drives`. Throws std::runtime_error
// with a message for the user.
[[nodiscard]] hostkit::StorageSettings SettingsOf(const StorageOptions& options,
                                                  const std::string& drives);

// Sets the rules of single cameras. Throws likewise.
void ApplyCameraRules(const StorageOptions& options, std::vector<hostkit::CameraConfig>& cameras);

// `configuration` with the bookmarks of the options, or as it is when they name none. Without
// `cameras` a bookmark covers the first 256 devices. Throws likewise.
[[nodiscard]] std::string WithBookmarksOf(const StorageOptions& options,
                                          const std::string& configuration,
                                          const std::vector<hostkit::CameraConfig>& cameras);

// The key of the reservation with that place in the options.
[[nodiscard]] std::string ReservationKey(std::size_t place);

}  // namespace nvrhost
