#include "storage/BookmarkIndex.h"

#include <algorithm>
#include <limits>

#include "media/PsFormat.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kSecondsBehind = 120;

qv::kelvo::StreamID Camera(qv::kelvo::StreamID id) {
  return id & ~0xFFu;
}

}  // namespace

BookmarkIndex::BookmarkIndex(const Bookmarks& table) {
  std::size_t place = 0;
  for (const auto& [caseId, record] : table) {
    const Stretch stretch{.from = record.start - qv::kelvo::kFileSeconds,
                          .end = record.end + kSecondsBehind,
                          .place = place++};
    if (stretch.from >= stretch.end) continue;
    for (const qv::kelvo::StreamID camera : record.devices) byCamera[camera].push_back(stretch);
    if (!record.devices.empty()) all.push_back(stretch);
  }
  const auto order = [](Stretches& stretches) {
    std::ranges::sort(stretches, {}, &Stretch::from);
    Prepare(stretches, 0, stretches.size());
  };
  for (auto& [camera, stretches] : byCamera) order(stretches);
  order(all);
}

std::int64_t BookmarkIndex::Prepare(Stretches& stretches, std::size_t begin, std::size_t end) {
  if (begin == end) return std::numeric_limits<std::int64_t>::min();
  const std::size_t middle = begin + (end - begin) / 2;
  Stretch& own = stretches[middle];
  own.latest =
      std::max({own.end, Prepare(stretches, begin, middle), Prepare(stretches, middle + 1, end)});
  return own.latest;
}

bool BookmarkIndex::ForEach(const Stretches& stretches, std::size_t begin, std::size_t end,
                            std::int64_t first, std::int64_t last,
                            const std::function<bool(const Stretch&)>& visit) {
  while (begin != end) {
    const std::size_t middle = begin + (end - begin) / 2;
    const Stretch& own = stretches[middle];
    if (own.latest <= first) return true;
    if (!ForEach(stretches, begin, middle, first, last, visit)) return false;
    if (own.from > last) return true;
    if (own.end > first && !visit(own)) return false;
    begin = middle + 1;
  }
  return true;
}

bool BookmarkIndex::Covers(qv::kelvo::StreamID id, const qv::kelvo::PathTime& time) const {
  const auto found = byCamera.find(Camera(id));
  if (found == byCamera.end()) return false;
  const auto within = [&](std::int64_t moment) {
    return !ForEach(found->second, 0, found->second.size(), moment, moment,
                    [](const Stretch&) { return false; });
  };
  return within(time.first) || (time.last != time.first && within(time.last));
}

void BookmarkIndex::Visit(qv::kelvo::StreamID id, const qv::kelvo::PathTime& time,
                          const std::function<void(std::size_t)>& visit) const {
  const auto found = byCamera.find(Camera(id));
  if (found == byCamera.end()) return;
  ForEach(found->second, 0, found->second.size(), time.first, time.last,
          [&](const Stretch& stretch) {
            const auto holds = [&](std::int64_t moment) {
              return moment >= stretch.from && moment < stretch.end;
            };
            if (holds(time.first) || holds(time.last)) visit(stretch.place);
            return true;
          });
}

bool BookmarkIndex::Touches(std::int64_t first, std::int64_t last) const {
  return !ForEach(all, 0, all.size(), first, last, [](const Stretch&) { return false; });
}

void BookmarkTable::Replace(Bookmarks next) {
  ++casesChanges;
  if (next == bookmarks) return;
  index = BookmarkIndex(next);
  bookmarks = std::move(next);
  ++revision;
}

}  // namespace qvsvr::kelvo
