#include "storage/RecordingTree.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <charconv>
#include <ctime>

#include "media/LocalTime.h"
#include "media/RecordPath.h"
#include "platform/Platform.h"

namespace qvsvr::kelvo {
namespace {

constexpr char kRecordings[] = "*.ps";
constexpr int kFirstYear = 2000;
constexpr std::size_t kDateParts = 4;
constexpr std::size_t kIdDigits = 8;
constexpr std::size_t kDayLength = sizeof "YYYY/MM/DD" - 1;
constexpr char kLastName[] = "5999-";
constexpr std::int64_t kLastNameSeconds = 59 * 60 + 99;
constexpr int kMaxPart = 1'000'000;  // far above any date, and safe to calculate with

bool ReadWhole(std::string_view text, int& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return !text.empty() && text[0] != '-' && error == std::errc{} && stop == end &&
         value <= kMaxPart;
}

bool IsDirectory(const std::string& path) {
  boost::system::error_code error;
  return boost::filesystem::is_directory(path, error);
}

// The time that local calendar parts stand for; parts out of range count on.
std::int64_t FromLocal(const std::array<int, kDateParts>& date, int minute, int second) {
  std::tm local{};
  local.tm_year = date[0] - 1900;
  local.tm_mon = date[1] - 1;
  local.tm_mday = date[2];
  local.tm_hour = date[3];
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return std::mktime(&local);
}

// Time of the oldest hour below `directory`, whose children are of `level`.
std::int64_t OldestBelow(qv::kelvo::Directories& directories, const std::string& directory,
                         std::size_t level, std::size_t volumeDepth) {
  const PartRange& range = kPartRanges[level];
  for (const std::string& name : ListHourParts(directories, directory, range.low, range.high)) {
    const std::string child = ChildDirectory(directory, name);
    const std::int64_t time = level + 1 == std::size(kPartRanges)
                                  ? PathToTime(child, volumeDepth)
                                  : OldestBelow(directories, child, level + 1, volumeDepth);
    if (time != kNoTime) return time;
  }
  return kNoTime;
}

}  // namespace

std::int64_t PathToTime(std::string_view path, std::size_t volumeDepth) {
  std::array<int, kDateParts> date{0, 1, 1, 0};
  int minute = 0;
  int second = 0;
  std::size_t part = 0;
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t stop =
        std::min(path.find_first_of(qv::kelvo::kPathSeparators, start), path.size());
    const std::string_view text = path.substr(start, stop - start);
    start = stop + 1;
    if (text.empty() || part++ < volumeDepth) continue;
    const std::size_t place = part - volumeDepth - 1;
    if (place < kDateParts) {
      if (!ReadWhole(text, date[place])) return kNoTime;
      continue;
    }
    std::uint32_t number = 0;
    if (place > kDateParts || !ReadNameNumber(text, number) || number > kMaxPart) return kNoTime;
    minute = static_cast<int>(number / 100);
    second = static_cast<int>(number % 100);
  }
  return part > volumeDepth ? FromLocal(date, minute, second) : kNoTime;
}

qv::kelvo::StreamID FileNameKey(std::string_view path) {
  const std::size_t dash = path.find('-');
  if (dash == std::string_view::npos) return 0;
  const std::string_view digits = path.substr(dash + 1, kIdDigits);
  qv::kelvo::StreamID id = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, id, 16);
  return error == std::errc{} && stop == end ? id : 0;
}

bool ReadNameNumber(std::string_view name, std::uint32_t& number) {
  const char* end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data(), end, number);
  if (error == std::errc::result_out_of_range) {
    number = std::numeric_limits<std::uint32_t>::max();
  } else if (error != std::errc{}) {
    return false;
  }
  return stop != end && *stop == '-';
}

std::vector<std::string> ListHourParts(qv::kelvo::Directories& directories,
                                       const std::string& directory, int low, int high) {
  std::vector<std::string> parts;
  const char* pattern = low >= kFirstYear ? "20??" : "??";
  // A directory that can't be read has no parts.
  (void)directories.List(
      directory, pattern, qv::kelvo::ListSizes::No, [&](const qv::kelvo::DirectoryEntry& entry) {
        int value = 0;
        if (entry.isDirectory && ReadWhole(entry.name, value) && value >= low && value <= high) {
          parts.emplace_back(entry.name);
        }
        return true;
      });
  std::sort(parts.begin(), parts.end());
  return parts;
}

std::string ChildDirectory(const std::string& directory, const std::string& name) {
  std::string path = directory;
  if (!path.empty() && !qv::kelvo::IsPathSeparator(path.back())) path += qv::kelvo::kPathSeparator;
  return path + name + qv::kelvo::kPathSeparator;
}

std::int64_t OldestHour(qv::kelvo::Directories& directories,
                        const std::vector<std::string>& volumes, std::size_t volumeDepth) {
  std::int64_t oldest = kNoTime;
  for (const std::string& volume : volumes) {
    oldest = std::min(oldest, OldestBelow(directories, volume, 0, volumeDepth));
  }
  return oldest;
}

std::vector<HourDir> HourDirs(const std::vector<std::string>& volumes, std::int64_t hour) {
  std::vector<HourDir> found;
  const std::string below = qv::kelvo::HourDirectory("", hour * 1000);
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    std::string path = volumes[i] + below;
    if (IsDirectory(path)) found.push_back({std::move(path), i});
  }
  return found;
}

std::int64_t SkipAbsentDay(const std::vector<std::string>& volumes, std::int64_t hour) {
  if (qv::kelvo::ToLocal(hour * 1000).hour != 0) return hour;
  const auto dayOf = [](std::int64_t time) {
    return qv::kelvo::HourDirectory("", time * 1000).substr(0, kDayLength);
  };
  const std::string day = dayOf(hour);
  const auto has = [&day](const std::string& volume) { return IsDirectory(volume + day); };
  if (std::ranges::any_of(volumes, has)) return hour;
  std::int64_t last = hour + kSecondsPerDay;  // no day is longer by more than an hour
  while (dayOf(last) != day) last -= kSecondsPerHour;
  return last;
}

HourTimes::HourTimes(const std::string& hourDirectory, std::size_t volumeDepth)
    : directory(hourDirectory),
      depth(volumeDepth),
      start(PathToTime(hourDirectory, volumeDepth)),
      even(PathToTime(hourDirectory + kLastName, volumeDepth) - start == kLastNameSeconds) {}

std::int64_t HourTimes::At(std::uint32_t number) const {
  if (even) return start + number / 100 * 60 + number % 100;
  return PathToTime(directory + std::to_string(number) + '-', depth);
}

void ListRecordings(qv::kelvo::Directories& directories, const std::string& directory,
                    qv::kelvo::ListSizes sizes,
                    const std::function<bool(const NamedRecording&)>& visit) {
  // A directory that vanished meanwhile has no recordings.
  (void)directories.List(directory, kRecordings, sizes,
                         [&](const qv::kelvo::DirectoryEntry& entry) {
                           NamedRecording recording{0, entry.name, entry.size};
                           if (entry.isDirectory || !ReadNameNumber(entry.name, recording.number) ||
                               recording.number >= kNameNumberLimit) {
                             return true;
                           }
                           return visit(recording);
                         });
}

}  // namespace qvsvr::kelvo
