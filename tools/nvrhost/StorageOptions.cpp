#include "nvrhost/StorageOptions.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <charconv>
#include <stdexcept>

#include "nvrhost/OptionGroup.h"
#include "nvrhost/TimeOption.h"

namespace nvrhost {
namespace {

constexpr int kMostDays = 36'500;
constexpr int kMostCameras = 256;
constexpr int kKeep = 1, kExpire = 2;

[[noreturn]] void Refuse(const std::string& option, const std::string& wants,
                         const std::string& text) {
  throw std::runtime_error(option + " wants " + wants + ", and got \"" + text + "\"");
}

// A whole number in a range.
bool ReadNumber(const std::string& text, int low, int high, int& number) {
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && stop == text.data() + text.size() && number >= low &&
         number <= high;
}

// Cuts `text` at the mark; what stands before it comes back, empty when there is no mark.
std::string CutBefore(std::string& text, char mark) {
  const auto at = text.find(mark);
  if (at == std::string::npos) return {};
  std::string before = text.substr(0, at);
  text.erase(0, at + 1);
  return before;
}

hostkit::StorageSettings::Drive& DriveOf(hostkit::StorageSettings& settings,
                                         const std::string& drives, const std::string& name) {
  if (!boost::filesystem::is_directory(boost::filesystem::path(drives) / name)) {
    throw std::runtime_error("no drive " + name + " in " + drives);
  }
  const std::string full = drives + '/' + name + '/';
  const auto found =
      std::ranges::find(settings.drives, full, &hostkit::StorageSettings::Drive::name);
  if (found != settings.drives.end()) return *found;
  return settings.drives.emplace_back(hostkit::StorageSettings::Drive{full, {}, {}});
}

void ApplyRules(const std::string& option, const std::vector<std::string>& rules, int type,
                std::vector<hostkit::CameraConfig>& cameras) {
  for (const auto& rule : rules) {
    std::string text = rule;
    const auto camera = CutBefore(text, '=');
    int number = 0, days = 0;
    if (!ReadNumber(text, 1, kMostDays, days) ||
        (!camera.empty() && !ReadNumber(camera, 1, static_cast<int>(cameras.size()), number))) {
      Refuse(option, "days, or a camera of this recording and days as in 2=30", rule);
    }
    for (std::size_t i = 0; i < cameras.size(); ++i) {
      if (number != 0 && static_cast<int>(i) + 1 != number) continue;
      cameras[i].expirationType = type;
      cameras[i].expirationDays = days;
    }
  }
}

hostkit::Bookmark BookmarkOf(const std::string& option, std::size_t place,
                             const std::vector<hostkit::CameraConfig>& cameras) {
  const auto refuse = [&] {
    Refuse("--bookmark",
           "two times, as in \"2025-06-15 17:00:00/2025-06-15 17:05:00\", with a "
           "camera's number and a colon before them or not",
           option);
  };
  std::string text = option;
  hostkit::Bookmark bookmark{"nvrhost", "bookmark" + std::to_string(place + 1), 0, 0, cameras};
  int number = 0;
  const auto colon = text.find(':');
  if (colon != std::string::npos &&
      ReadNumber(text.substr(0, colon), 1, static_cast<int>(cameras.size()), number)) {
    bookmark.cameras = {cameras[static_cast<std::size_t>(number) - 1]};
    text.erase(0, colon + 1);
  }
  const auto from = CutBefore(text, '/');
  if (from.empty()) refuse();
  bookmark.start = ParseTime("--bookmark", from);
  bookmark.end = ParseTime("--bookmark", text);
  if (bookmark.end < bookmark.start) refuse();
  return bookmark;
}

}  // namespace

void AddStorageOptions(CLI::App& command, StorageOptions& options, CameraRules rules) {
  OptionGroup group(command, "Storage (kept in DIR/kelvo.xml)");
  group.Add("--use", options.use, "DRIVE=PERCENT", "share of a drive that may be recorded on");
  group.Add("--enable", options.enable, "DRIVE", "record on it again");
  group.Add("--disable", options.disable, "DRIVE", "don't record on it any more");
  group
      .Add("--keep-days", options.keepDays, "N",
           "keep every recording so long, whatever room it takes; 0 ends a rule for all")
      .check(CLI::Range(0, kMostDays).description(""));
  group
      .Add("--expire-days", options.expireDays, "N",
           "delete recordings of that age; 0 ends a rule for all")
      .check(CLI::Range(0, kMostDays).description(""))
      ->excludes("--keep-days");
  if (rules == CameraRules::Yes) {
    group.Add("--camera-keep", options.cameraKeep, "[CAMERA=]DAYS",
              "the same for one camera, or for each of them, while no rule is set for all");
    group.Add("--camera-expire", options.cameraExpire, "[CAMERA=]DAYS", "likewise");
  }
  group
      .Add("--content-age", options.contentAgeSeconds, "S",
           "tell an alarm when recordings have to go for room before this age")
      .check(CLI::Range(0, 2'000'000'000).description(""));
  group.AddChoice("--cleanup", options.cleanup, {"", "removes", "reports"},
                  "what becomes of the debris of crashes: removes, reports");
  group.Add("--bookmark", options.bookmarks, "[CAMERA:]FROM/TO",
            "protect the footage between two times; takes the place of all earlier bookmarks; "
            "repeatable");
  command.add_flag("--no-bookmarks", options.noBookmarks, "drop all bookmarks")
      ->group("Storage (kept in DIR/kelvo.xml)");
  group.Add("--reserve", options.reserveGB, "GB", "ask for space on a drive; repeatable")
      .check(CLI::Range(1, 1'000'000).description(""));
}

hostkit::StorageSettings SettingsOf(const StorageOptions& options, const std::string& drives) {
  hostkit::StorageSettings settings;
  for (const auto& use : options.use) {
    std::string percent = use;
    const auto name = CutBefore(percent, '=');
    int value = 0;
    if (name.empty() || !ReadNumber(percent, 0, 100, value)) {
      Refuse("--use", "a drive and a percentage, as in disk1=80", use);
    }
    DriveOf(settings, drives, name).percent = value;
  }
  for (const auto& name : options.enable) DriveOf(settings, drives, name).enabled = true;
  for (const auto& name : options.disable) DriveOf(settings, drives, name).enabled = false;
  if (options.keepDays >= 0) settings.expirationDays = options.keepDays;
  if (options.expireDays >= 0) settings.expirationDays = -options.expireDays;
  if (options.contentAgeSeconds >= 0) settings.contentAgeSeconds = options.contentAgeSeconds;
  if (!options.cleanup.empty()) settings.cleanupRemoves = options.cleanup == "removes";
  return settings;
}

void ApplyCameraRules(const StorageOptions& options, std::vector<hostkit::CameraConfig>& cameras) {
  ApplyRules("--camera-keep", options.cameraKeep, kKeep, cameras);
  ApplyRules("--camera-expire", options.cameraExpire, kExpire, cameras);
}

std::string WithBookmarksOf(const StorageOptions& options, const std::string& configuration,
                            const std::vector<hostkit::CameraConfig>& cameras) {
  if (options.bookmarks.empty() && !options.noBookmarks) return configuration;
  auto covered = cameras;
  for (int device = 0; cameras.empty() && device < kMostCameras; ++device) {
    covered.emplace_back().device = device;
  }
  std::vector<hostkit::Bookmark> bookmarks;
  for (std::size_t i = 0; i < options.bookmarks.size(); ++i) {
    bookmarks.push_back(BookmarkOf(options.bookmarks[i], i, covered));
  }
  return hostkit::WithBookmarks(configuration, bookmarks);
}

std::string ReservationKey(std::size_t place) {
  return "nvrhost-" + std::to_string(place + 1);
}

}  // namespace nvrhost
