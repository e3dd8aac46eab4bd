#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "host/Xml.h"
#include "media/StreamId.h"

namespace qvsvr::kelvo {

// A stretch of time on some cameras whose footage stays: recordings that begin from five minutes,
// the life of a file, before its start until two minutes behind its end.
struct BookmarkRecord {
  static constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

  std::string bookmarkId;
  std::int32_t start = 0;  // seconds since 1970
  std::int32_t end = 0;
  std::set<qv::kelvo::StreamID> devices;  // input byte 0: all inputs of a device and context
  std::uint32_t sizeKB = kUnknownSize;    // summed up in the sweeper's copy only

  friend bool operator==(const BookmarkRecord&, const BookmarkRecord&) = default;
};

// By case id. The records of a case stand in order of arrival.
using Bookmarks = std::multimap<std::string, BookmarkRecord>;

// The bookmarks of the text of a Cases element, of which no tree is ever built. Whatever lacks a
// required attribute is left out. Sizes are taken over from `old` for bookmarks that stayed the
// same.
[[nodiscard]] Bookmarks ReadCases(const std::string& cases, const Bookmarks& old);

// A Cases element with each bookmark's size; without children when the table is empty.
[[nodiscard]] TiXmlElement BookmarkSizes(const Bookmarks& table);

}  // namespace qvsvr::kelvo
