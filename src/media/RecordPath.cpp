#include "media/RecordPath.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <charconv>
#include <cstdio>
#include <vector>

#include "host/Log.h"
#include "media/LocalTime.h"
#include "platform/Platform.h"

namespace qv::kelvo {

namespace fs = boost::filesystem;

namespace {

constexpr std::size_t kStemLength = 13;  // "MMSS-CPPPDDII"
constexpr std::size_t kIdOffset = 5;
constexpr std::size_t kIdLength = 8;
constexpr std::size_t kExtensionLength = 3;
constexpr std::size_t kMaxIndexPath = 260;
constexpr std::size_t kDateLevels = 4;
constexpr std::size_t kLevelLength = 3;  // of a month, day or hour with its separator
constexpr char kDuplicateSuffix[] = "a";

// Makes a directory and its missing parents with mode 0755 or what the process allows of it.
void MakeDirectories(fs::path directory) {
  std::vector<fs::path> missing;
  boost::system::error_code error;
  for (; !directory.empty() && !fs::exists(directory, error); directory = directory.parent_path()) {
    missing.push_back(directory);
  }
  for (auto next = missing.rbegin(); next != missing.rend(); ++next) {
    if (!fs::create_directory(*next, error)) continue;
    const fs::perms made = fs::status(*next, error).permissions();
    constexpr auto kMode = static_cast<fs::perms>(0755);
    if ((made & ~kMode) != fs::no_perms) fs::permissions(*next, made & kMode, error);
  }
}

// The whole of `text` as an unsigned number; false, with `value` as it was, when it isn't one.
bool ReadNumber(std::string_view text, int base, std::uint32_t& value) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return false;
  value = number;
  return true;
}

bool ReadField(std::string_view name, std::size_t offset, std::size_t length, int base,
               std::uint32_t& value) {
  return name.size() >= offset + length && ReadNumber(name.substr(offset, length), base, value);
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

struct SplitPath {
  std::vector<std::string_view> directories;
  std::string_view name;
};

SplitPath Split(std::string_view path) {
  SplitPath split;
  std::size_t start = 0;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (!IsPathSeparator(path[i])) continue;
    const std::string_view part = path.substr(start, i - start);
    const bool volume = start == 0 && kPathSeparator == '\\' && part.ends_with(':');
    if (!part.empty() && !volume) split.directories.push_back(part);
    start = i + 1;
  }
  split.name = path.substr(start);
  return split;
}

std::string FileName(const CalendarTime& local, StreamID id, const char* suffix) {
  char name[40];
  std::snprintf(name, sizeof name, "%02d%02d-%08lX%s.ps", local.minute, local.second,
                static_cast<unsigned long>(id), suffix);
  return name;
}

std::string HourDirectory(const std::string& root, const CalendarTime& local) {
  char levels[64];
  const char s = kPathSeparator;
  std::snprintf(levels, sizeof levels, "%04d%c%02d%c%02u%c%02u%c", local.year, s, local.month, s,
                static_cast<unsigned>(local.day), s, static_cast<unsigned>(local.hour), s);
  return root + levels;
}

}  // namespace

std::string HourDirectory(const std::string& root, UtcMs time) {
  return HourDirectory(root, ToLocal(time));
}

std::string TreeDirectory(const std::string& root, UtcMs time, TreeLevel level) {
  std::string directory = HourDirectory(root, time);
  const auto levelsBelow = kDateLevels - static_cast<std::size_t>(level);
  directory.resize(directory.size() - levelsBelow * kLevelLength);
  return directory;
}

std::string MakePath(const std::string& root, UtcMs time, StreamID id, CreateDirectories create) {
  const CalendarTime local = ToLocal(time);
  std::string directory = HourDirectory(root, local);
  if (create == CreateDirectories::Yes) MakeDirectories(directory.substr(0, directory.size() - 1));
  if (id == 0) return directory;
  std::string path = directory + FileName(local, id, "");
  boost::system::error_code error;
  if (!fs::exists(path, error)) return path;
  qvsvr::kelvo::LogPrintf(qvsvr::kelvo::LogWarning, "Duplicate file name %s", path.c_str());
  return directory + FileName(local, id, kDuplicateSuffix);
}

std::string IndexPath(const std::string& mediaPath) {
  return (mediaPath + 'i').substr(0, kMaxIndexPath);
}

ParsedName ParseName(std::string_view name) {
  ParsedName parsed;
  parsed.name = name;
  if (name.size() < kStemLength + kExtensionLength) return parsed;
  std::uint32_t minute = 0, second = 0, id = 0;
  if (!std::all_of(name.begin(), name.begin() + 4, IsDigit) || name[4] != '-' ||
      !ReadField(name, 0, 2, 10, minute) || !ReadField(name, 2, 2, 10, second) ||
      !ReadField(name, kIdOffset, kIdLength, 16, id)) {
    return parsed;
  }
  const std::string_view extension = name.substr(name.size() - kExtensionLength);
  if (extension[0] != '.' || Lower(extension[1]) != 'p' || Lower(extension[2]) != 's') {
    return parsed;
  }
  parsed.minute = static_cast<std::uint8_t>(minute);
  parsed.second = static_cast<std::uint8_t>(second);
  parsed.id = id;
  parsed.extension = extension;
  parsed.valid = true;
  parsed.suffix = name.substr(kStemLength, name.size() - kStemLength - kExtensionLength);
  parsed.isDuplicate = parsed.suffix == kDuplicateSuffix;
  return parsed;
}

bool ParsePath(std::string_view path, PathFields& fields) {
  const SplitPath split = Split(path);
  if (split.directories.size() >= kDateLevels) {
    std::uint32_t* const dates[kDateLevels] = {&fields.year, &fields.month, &fields.day,
                                               &fields.hour};
    const auto first = split.directories.size() - kDateLevels;
    for (std::size_t level = 0; level < kDateLevels; ++level) {
      (void)ReadNumber(split.directories[first + level], 10, *dates[level]);
    }
  }
  const std::string_view stem = split.name.substr(0, split.name.rfind('.'));
  return ReadField(stem, kIdOffset, kIdLength, 16, fields.id) &&
         ReadField(stem, 0, 2, 10, fields.minute) && ReadField(stem, 2, 2, 10, fields.second);
}

}  // namespace qv::kelvo
