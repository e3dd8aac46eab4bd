#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/Xml.h"
#include "media/StreamId.h"

namespace qvsvr::kelvo {

// A stretch of time on some cameras whose footage stays.
struct BookmarkRecord {
  static constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

  std::string bookmarkId;
  std::int32_t start = 0;  // seconds since 1970
  std::int32_t end = 0;
  std::set<qv::kelvo::StreamID> devices;  // input byte 0: all inputs of a device and context
  std::uint32_t sizeKB = kUnknownSize;    // summed up in the sweeper's copy only

  // Whether a recording that begins at `time` may hold some of the stretch: from five minutes, the
  // life of a file, before its start until two minutes behind its end.
  [[nodiscard]] bool Overlaps(std::int64_t time) const;
  [[nodiscard]] bool Covers(std::int64_t time, qv::kelvo::StreamID id) const {
    return Overlaps(time) && devices.contains(id & ~0xFFu);
  }
  friend bool operator==(const BookmarkRecord&, const BookmarkRecord&) = default;
};

// By case id. The records of a case stand in order of arrival.
using Bookmarks = std::multimap<std::string, BookmarkRecord>;

// The bookmarks of a Cases element. Whatever lacks a required attribute is left out. Sizes are
// taken over from `old` for bookmarks that stayed the same.
[[nodiscard]] Bookmarks ReadCases(const TiXmlElement& cases, const Bookmarks& old);

// A Cases element with each bookmark's size; without children when the table is empty.
[[nodiscard]] TiXmlElement BookmarkSizes(const Bookmarks& table);

// Those that a recording in an hour directory of that time may belong to. Borrowed from the table.
[[nodiscard]] std::vector<BookmarkRecord*> BookmarksNear(Bookmarks& table, std::int64_t hour);
[[nodiscard]] std::vector<const BookmarkRecord*> BookmarksNear(const Bookmarks& table,
                                                               std::int64_t hour);

// The table in force. Worker thread only.
struct BookmarkTable {
  Bookmarks bookmarks;
  std::uint32_t casesChanges = 0;  // counts replacements
  std::uint64_t revision = 0;      // counts replacements by something else

  void Replace(Bookmarks next);
};

}  // namespace qvsvr::kelvo
