#include "tree/HourCursor.h"

#include <algorithm>
#include <utility>

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

// The hour that the names of a year, month, day and hour stand for, if there is such a one.
template <class Levels>
std::optional<UtcMs> HourOf(const Levels& way) {
  std::array<std::uint32_t, 4> date{};
  for (std::size_t i = 0; i < date.size(); ++i) (void)ReadDecimal(way[i].names.back(), date[i]);
  const HourTimes hour(CalendarTime{static_cast<int>(date[0]), static_cast<int>(date[1]),
                                    static_cast<int>(date[2]), static_cast<int>(date[3])});
  if (!hour.Exists()) return std::nullopt;
  return hour.Start().first * 1000;
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
    while (ListAhead()) {
    }
    lookedAt = 0;
    current = std::exchange(oldest, std::nullopt);
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

bool HourCursor::ListAhead() {
  while (!current && lookedAt < volumes.size()) {
    if (way.empty()) {
      Enter(volumes[lookedAt]);
      return true;
    }
    if (way.back().names.empty()) {
      way.pop_back();
      if (way.empty()) {
        ++lookedAt;
      } else {
        way.back().names.pop_back();
      }
    } else if (way.size() < std::size(kPartRanges)) {
      Enter(ChildDirectory(way.back().directory, way.back().names.back()));
      return true;
    } else if (const auto hour = HourOf(way)) {
      oldest = std::min(oldest.value_or(*hour), *hour);
      way.clear();
      ++lookedAt;
    } else {
      way.back().names.pop_back();
    }
  }
  return false;
}

void HourCursor::Enter(std::string directory) {
  const PartRange& range = kPartRanges[way.size()];
  auto names = ListHourParts(listings, directory, range.low, range.high);
  std::ranges::reverse(names);
  way.push_back({std::move(directory), std::move(names)});
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
