#include "storage/Bookmarks.h"

#include <string_view>
#include <utility>
#include <vector>

#include "host/DeviceNest.h"

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

std::uint32_t KnownSize(const FirstOfId& old, std::string_view caseId,
                        const BookmarkRecord& record) {
  const auto found = old.find(std::pair{caseId, std::string_view(record.bookmarkId)});
  if (found == old.end()) return BookmarkRecord::kUnknownSize;
  const BookmarkRecord& earlier = *found->second;
  const bool same = earlier.start == record.start && earlier.end == record.end &&
                    earlier.devices == record.devices;
  return same ? earlier.sizeKB : BookmarkRecord::kUnknownSize;
}

}  // namespace

Bookmarks ReadCases(const std::string& cases, const Bookmarks& old) {
  constexpr int kCaseLevel = 2;
  Bookmarks table;
  const FirstOfId known = IndexIds(old);
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

}  // namespace qvsvr::kelvo
