#include "tree/RecordPath.h"

#include <algorithm>
#include <array>

#include "host/Log.h"
#include "platform/Files.h"
#include "platform/Platform.h"

namespace qv::kelvo {

namespace {

constexpr std::size_t kDateLevels = 4;
constexpr std::size_t kLevelLength = 3;  // of a month, day or hour with its separator
constexpr int kFirstYear = 2000;
constexpr std::uint32_t kMaxPart = 9999;         // above any date
constexpr std::uint32_t kMaxNumber = 1'000'000;  // safe to calculate with
constexpr std::int64_t kLastMinute = 59;

// Makes a directory and its missing parents.
void MakeDirectories(const std::string& directory) {
  if (directory.empty() || Exists(directory)) return;
  std::size_t parent = directory.find_last_of(kPathSeparators);
  parent =
      parent == std::string::npos ? parent : directory.find_last_not_of(kPathSeparators, parent);
  if (parent != std::string::npos) MakeDirectories(directory.substr(0, parent + 1));
  (void)MakeDirectory(directory);  // what fails is told when the file is opened
}

// Calls `visit` for each directory of `path`, outermost first, and gives the name behind the last.
template <typename Visit>
std::string_view VisitParts(std::string_view path, Visit visit) {
  std::size_t start = 0;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (!IsPathSeparator(path[i])) continue;
    const std::string_view part = path.substr(start, i - start);
    const bool volume = start == 0 && kPathSeparator == '\\' && part.ends_with(':');
    if (!part.empty() && !volume) visit(part);
    start = i + 1;
  }
  return path.substr(start);
}

void AppendLevel(std::string& path, int value, std::size_t digits) {
  const std::string text = std::to_string(value);
  path.append(digits - std::min(digits, text.size()), '0').append(text) += kPathSeparator;
}

std::string HourDirectory(const std::string& root, const CalendarTime& local) {
  constexpr std::size_t kLevels = 14;  // what four of them take
  std::string directory;
  directory.reserve(root.size() + kLevels);
  directory = root;
  AppendLevel(directory, local.year, 4);
  for (const int level : {local.month, local.day, local.hour}) AppendLevel(directory, level, 2);
  return directory;
}

bool SameHour(const CalendarTime& a, const CalendarTime& b) {
  return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour;
}

PathTime Seconds(const Meanings& meanings) {
  return {meanings.first / 1000, meanings.last / 1000};
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
  std::string path = directory + RecordName(local.minute, local.second, id, false);
  if (!Exists(path)) return path;
  qvsvr::kelvo::LogPrintf(qvsvr::kelvo::LogWarning, "Duplicate file name %s", path.c_str());
  return directory + RecordName(local.minute, local.second, id, true);
}

bool ParsePath(std::string_view path, PathFields& fields) {
  std::array<std::string_view, kDateLevels> last;  // directories, in a ring
  std::size_t count = 0;
  const std::string_view name =
      VisitParts(path, [&](std::string_view part) { last[count++ % kDateLevels] = part; });
  if (count >= kDateLevels) {
    for (std::uint32_t* date : {&fields.year, &fields.month, &fields.day, &fields.hour}) {
      (void)ReadDecimal(last[count++ % kDateLevels], *date);
    }
  }
  const std::string_view stem = name.substr(0, name.rfind('.'));
  return ReadNameId(stem, fields.id) && ReadDecimal(stem.substr(0, 2), fields.minute) &&
         ReadDecimal(stem.substr(2, 2), fields.second);
}

HourTimes::HourTimes(const CalendarTime& local)
    : hour{local.year, local.month, local.day, local.hour} {
  const UtcMs first = FromLocal(hour);
  // A date that isn't in the calendar, or an hour that is skipped in spring, leads elsewhere.
  if (!SameHour(ToLocal(first), hour)) return;
  const Meanings begin = MeaningsOf(hour);
  CalendarTime lastMinute = hour;
  lastMinute.minute = kLastMinute;
  const Meanings end = MeaningsOf(lastMinute);
  start = begin.any ? Seconds(begin) : PathTime{first / 1000, first / 1000};
  even = begin.any && end.any && start.first == start.last && end.first == end.last &&
         end.first - begin.first == kLastMinute * 60'000;
}

PathTime HourTimes::At(std::uint32_t number) const {
  const auto minute = static_cast<std::int64_t>(number / 100);
  const auto second = static_cast<std::int64_t>(number % 100);
  PathTime time = start;
  if (even) {
    time.first += minute * 60;
  } else {
    CalendarTime local = hour;
    local.minute = static_cast<int>(minute);
    const Meanings found = MeaningsOf(local);
    if (found.any) time = Seconds(found);
  }
  time.first += second;
  time.last = even ? time.first : time.last + second;
  return time;
}

PathTime TimeOfPath(std::string_view path, std::string_view root) {
  if (!path.starts_with(root)) return {};
  std::array<std::uint32_t, kDateLevels> date{0, 1, 1, 0};
  std::size_t parts = 0;
  std::uint32_t number = 0;
  bool good = true;
  const auto take = [&](std::string_view part) {
    const std::size_t place = parts++;
    good = good && (place < kDateLevels ? ReadDecimal(part, date[place]) && date[place] <= kMaxPart
                                        : place == kDateLevels && ReadNameNumber(part, number) &&
                                              number <= kMaxNumber);
  };
  const std::string_view name = VisitParts(path.substr(root.size()), take);
  if (!name.empty()) take(name);
  if (!good || parts == 0) return {};
  const HourTimes hour(CalendarTime{static_cast<int>(date[0]), static_cast<int>(date[1]),
                                    static_cast<int>(date[2]), static_cast<int>(date[3])});
  if (!hour.Exists()) return {};
  return parts > kDateLevels ? hour.At(number) : hour.Start();
}

std::vector<std::string> ListHourParts(Directories& directories, const std::string& directory,
                                       int low, int high) {
  std::vector<std::string> parts;
  const char* pattern = low >= kFirstYear ? "20??" : "??";
  // A directory that can't be read has no parts.
  (void)directories.List(directory, pattern, ListSizes::No, [&](const DirectoryEntry& entry) {
    std::uint32_t value = 0;
    if (entry.isDirectory && ReadDecimal(entry.name, value) && value <= kMaxPart &&
        static_cast<int>(value) >= low && static_cast<int>(value) <= high) {
      parts.emplace_back(entry.name);
    }
    return true;
  });
  std::sort(parts.begin(), parts.end());
  return parts;
}

std::string ChildDirectory(const std::string& directory, const std::string& name) {
  return WithSeparator(directory) + name + kPathSeparator;
}

std::string WithExtension(const std::string& path, const char* extension) {
  return path.substr(0, path.rfind('.') + 1) + extension;
}

std::string WithSeparator(std::string path) {
  if (!path.empty() && !IsPathSeparator(path.back())) path += kPathSeparator;
  return path;
}

}  // namespace qv::kelvo
