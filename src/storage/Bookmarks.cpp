#include "storage/Bookmarks.h"

namespace qvsvr::kelvo {
namespace {

bool HoldsMedia(const TiXmlElement& holder) {
  return holder.FirstChildElement("Video") != nullptr ||
         holder.FirstChildElement("Audio") != nullptr;
}

std::set<qv::kelvo::StreamID> ReadDevices(const TiXmlElement& bookmark) {
  std::set<qv::kelvo::StreamID> found;
  for (const TiXmlElement& devices : Children(bookmark, "Devices")) {
    int provider = 0;
    if (!ReadInt(devices, "ID", provider)) continue;
    for (const TiXmlElement& device : Children(devices, "Device")) {
      int number = 0;
      if (!ReadInt(device, "Number", number)) continue;
      const auto add = [&](int context) {
        found.insert(qv::kelvo::MakeStreamID(static_cast<std::uint32_t>(context),
                                             static_cast<std::uint32_t>(provider),
                                             static_cast<std::uint32_t>(number), 0));
      };
      if (HoldsMedia(device)) add(0);
      for (const TiXmlElement& contextElement : Children(device, "Context")) {
        int context = 0;
        if (ReadInt(contextElement, "Number", context) && HoldsMedia(contextElement)) add(context);
      }
    }
  }
  return found;
}

std::uint32_t KnownSize(const Bookmarks& old, const std::string& caseId,
                        const BookmarkRecord& record) {
  const auto [begin, end] = old.equal_range(caseId);
  for (auto it = begin; it != end; ++it) {
    const BookmarkRecord& earlier = it->second;
    if (earlier.bookmarkId != record.bookmarkId) continue;
    const bool same = earlier.start == record.start && earlier.end == record.end &&
                      earlier.devices == record.devices;
    return same ? earlier.sizeKB : BookmarkRecord::kUnknownSize;
  }
  return BookmarkRecord::kUnknownSize;
}

}  // namespace

Bookmarks ReadCases(const TiXmlElement& cases, const Bookmarks& old) {
  Bookmarks table;
  for (const TiXmlElement& element : Children(cases, "Case")) {
    const char* caseId = element.Attribute("ID");
    if (caseId == nullptr) continue;
    for (const TiXmlElement& bookmark : Children(element, "Bookmark")) {
      const char* id = bookmark.Attribute("ID");
      BookmarkRecord record;
      if (id == nullptr || !ReadInt(bookmark, "Start", record.start) ||
          !ReadInt(bookmark, "End", record.end)) {
        continue;
      }
      record.bookmarkId = id;
      record.devices = ReadDevices(bookmark);
      record.sizeKB = KnownSize(old, caseId, record);
      table.emplace(caseId, std::move(record));
    }
  }
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
