#include "storage/Bookmarks.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "host/DeviceNest.h"
#include "media/PsFormat.h"

namespace qvsvr::kelvo {
namespace {

bool HoldsMedia(const TiXmlElement& holder) {
  return holder.FirstChildElement("Video") != nullptr ||
         holder.FirstChildElement("Audio") != nullptr;
}

std::set<qv::kelvo::StreamID> ReadDevices(const TiXmlElement& bookmark) {
  std::set<qv::kelvo::StreamID> found;
  ForEachDevice(bookmark, [&](std::uint32_t id, std::int32_t number, const TiXmlElement& device) {
    ForEachContext(device, [&](std::int32_t context, const TiXmlElement& element) {
      if (!HoldsMedia(element)) return;
      found.insert(qv::kelvo::MakeStreamID(static_cast<std::uint32_t>(context), id,
                                           static_cast<std::uint32_t>(number), 0));
    });
  });
  return found;
}

bool ReadBookmark(const TiXmlElement& bookmark, BookmarkRecord& record) {
  const char* const id = bookmark.Attribute("ID");
  if (id == nullptr || !ReadInt(bookmark, "Start", record.start) ||
      !ReadInt(bookmark, "End", record.end)) {
    return false;
  }
  record.bookmarkId = id;
  record.devices = ReadDevices(bookmark);
  return true;
}

// The first bookmark of each id in each case. Borrows from the table.
using FirstOfId = std::map<std::pair<std::string_view, std::string_view>, const BookmarkRecord*>;

FirstOfId IndexIds(const Bookmarks& table) {
  FirstOfId index;
  for (const auto& [caseId, record] : table) {
    index.try_emplace({caseId, record.bookmarkId}, &record);
  }
  return index;
}

// A bookmark of another stretch of time or other cameras is measured anew by the next sweep.
std::uint32_t KnownSize(const FirstOfId& old, std::string_view caseId,
                        const BookmarkRecord& record) {
  const auto found = old.find(std::pair{caseId, std::string_view(record.bookmarkId)});
  if (found == old.end()) return BookmarkRecord::kUnknownSize;
  const BookmarkRecord& earlier = *found->second;
  const bool same = earlier.start == record.start && earlier.end == record.end &&
                    earlier.devices == record.devices;
  return same ? earlier.sizeKB : BookmarkRecord::kUnknownSize;
}

constexpr std::int64_t kSecondsBehind = 120;

qv::kelvo::StreamID Camera(qv::kelvo::StreamID id) {
  return id & ~0xFFu;
}

}  // namespace

Bookmarks ReadCases(const std::string& cases, const Bookmarks& old) {
  constexpr int kCaseLevel = 2;
  Bookmarks table;
  const FirstOfId known = IndexIds(old);
  // Elements are visited when they end, so that the bookmarks of a case come before its own tag.
  std::vector<BookmarkRecord> records;  // of the case that hasn't ended
  ForEachElement(cases, [&](int level, std::string_view name, std::string_view element) {
    if (level == kCaseLevel + 1 && name == "Bookmark") {
      BookmarkRecord record;
      if (ReadBookmark(ParseElement(element), record)) records.push_back(std::move(record));
    }
    if (level != kCaseLevel) return;
    const TiXmlElement tag = ParseTag(element);
    const char* const id = tag.Attribute("ID");
    for (BookmarkRecord& record : records) {
      if (name != "Case" || id == nullptr) break;
      record.sizeKB = KnownSize(known, id, record);
      table.emplace(id, std::move(record));
    }
    records.clear();
  });
  return table;
}

TiXmlElement BookmarkSizes(const Bookmarks& table) {
  TiXmlElement cases("Cases");
  TiXmlElement* current = nullptr;
  const std::string* currentId = nullptr;
  for (const auto& [caseId, record] : table) {
    if (current == nullptr || *currentId != caseId) {
      current = new TiXmlElement("Case");
      current->SetAttribute("ID", caseId);
      cases.LinkEndChild(current);
      currentId = &caseId;
    }
    auto* bookmark = new TiXmlElement("Bookmark");
    bookmark->SetAttribute("ID", record.bookmarkId);
    bookmark->SetAttribute("SizeKB", std::to_string(record.sizeKB));
    current->LinkEndChild(bookmark);
  }
  return cases;
}

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

// Fills in `latest` for the tree whose root is the middle of the range. Returns that root's.
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

// In the hour that comes twice a recording lies in what holds either of its times, but not in what
// lies between them.
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
