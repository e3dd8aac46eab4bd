#include "tree/HourCursor.h"

#include <algorithm>

#include "platform/Files.h"

namespace qv::kelvo {
namespace {

UtcMs EndOf(UtcMs time, TreeLevel level) {
  switch (level) {
    case TreeLevel::Year:
      return NextLocalYear(time);
    case TreeLevel::Month:
      return NextLocalMonth(time);
    case TreeLevel::Day:
      return NextLocalDay(time);
    default:
      return NextLocalHour(time);
  }
}

// The oldest hour below `directory`, a path of the years, months and days in `date`.
std::optional<UtcMs> OldestBelow(Directories& directories, const std::string& directory,
                                 std::array<std::uint32_t, 4>& date, std::size_t level) {
  const PartRange& range = kPartRanges[level];
  for (const std::string& name : ListHourParts(directories, directory, range.low, range.high)) {
    (void)ReadDecimal(name, date[level]);
    if (level + 1 < date.size()) {
      const std::string child = ChildDirectory(directory, name);
      if (const auto oldest = OldestBelow(directories, child, date, level + 1)) return oldest;
      continue;
    }
    const HourTimes hour(CalendarTime{static_cast<int>(date[0]), static_cast<int>(date[1]),
                                      static_cast<int>(date[2]), static_cast<int>(date[3])});
    if (hour.Exists()) return hour.Start().first * 1000;
  }
  return std::nullopt;
}

}  // namespace

bool FindNextHour(UtcMs& time, UtcMs end, const LevelTest& exists) {
  constexpr TreeLevel kLevels[] = {TreeLevel::Year, TreeLevel::Month, TreeLevel::Day,
                                   TreeLevel::Hour};
  while (time < end) {
    const auto* absent =
        std::ranges::find_if(kLevels, [&](TreeLevel level) { return !exists(time, level); });
    if (absent == std::end(kLevels)) return true;
    time = EndOf(time, *absent);
  }
  return false;
}

HourCursor::HourCursor(Directories& directories, std::vector<std::string> roots)
    : listings(directories), volumes(std::move(roots)) {}

std::optional<HourCursor::Hour> HourCursor::Next(UtcMs end) {
  if (!current) {
    current = OldestHour();
    if (!current) return std::nullopt;
    FindDirectories(*current);
    if (!found.empty()) return Hour{*current, std::move(found)};
  }
  UtcMs time = NextLocalHour(*current);
  if (HourDirectory("", time) == HourDirectory("", *current)) time = NextLocalHour(time);
  if (!FindNextHour(time, end, [this](UtcMs at, TreeLevel level) { return Exists(at, level); })) {
    return std::nullopt;
  }
  current = time;
  return Hour{time, std::move(found)};
}

std::optional<UtcMs> HourCursor::OldestHour() const {
  std::optional<UtcMs> oldest;
  for (const std::string& volume : volumes) {
    std::array<std::uint32_t, 4> date{};
    const auto hour = OldestBelow(listings, volume, date, 0);
    if (hour && (!oldest || *hour < *oldest)) oldest = hour;
  }
  return oldest;
}

bool HourCursor::Exists(UtcMs time, TreeLevel level) {
  if (level == TreeLevel::Hour) {
    FindDirectories(time);
    return !found.empty();
  }
  UtcMs& until = knownUntil[static_cast<std::size_t>(level) - 1];
  if (time < until) return true;
  const std::string below = TreeDirectory("", time, level);
  if (!std::ranges::any_of(volumes,
                           [&](const std::string& root) { return IsDirectory(root + below); })) {
    return false;
  }
  until = EndOf(time, level);
  return true;
}

void HourCursor::FindDirectories(UtcMs time) {
  found.clear();
  const std::string below = HourDirectory("", time);
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    std::string path = volumes[i] + below;
    if (IsDirectory(path)) found.push_back({std::move(path), i});
  }
}

}  // namespace qv::kelvo
