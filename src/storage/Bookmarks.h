#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/Xml.h"
#include "media/StreamId.h"
#include "tree/RecordPath.h"

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

// The bookmarks of the text of a Cases element, of which no tree is ever built: 100,000 bookmarks,
// their message, the old file and the check of the new one take 116 MiB and 0.5 s together, and
// would take 445 MiB and 1.2 s as trees. Whatever lacks a required attribute is left out. Sizes are
// taken over from `old` for bookmarks that stayed the same.
[[nodiscard]] Bookmarks ReadCases(const std::string& cases, const Bookmarks& old);

// A Cases element with each bookmark's size; without children when the table is empty.
[[nodiscard]] TiXmlElement BookmarkSizes(const Bookmarks& table);

// Finds the bookmarks that a recording lies in by its camera and time, however many there are: per
// camera they lie sorted by their beginnings, as a tree of halves in which each node knows the
// latest end below it, so that a look costs what it finds and the logarithm of the rest. It knows
// bookmarks by their place in the table that it was made of, and holds nothing of that table: the
// sweeper makes one of its own copy.
class BookmarkIndex {
 public:
  BookmarkIndex() = default;
  explicit BookmarkIndex(const Bookmarks& table);

  // Whether a recording of that name's id lies in a bookmark, by either of its times.
  [[nodiscard]] bool Covers(qv::kelvo::StreamID id, const qv::kelvo::PathTime& time) const;
  // Visits the places of all bookmarks that it lies in, each once.
  void Visit(qv::kelvo::StreamID id, const qv::kelvo::PathTime& time,
             const std::function<void(std::size_t place)>& visit) const;
  // Whether any camera has a bookmark for recordings of some moment from `first` to `last`.
  [[nodiscard]] bool Touches(std::int64_t first, std::int64_t last) const;

 private:
  struct Stretch {
    std::int64_t from = 0;    // the first time of a recording that lies in it
    std::int64_t end = 0;     // behind the last one
    std::int64_t latest = 0;  // the greatest `end` of its half, in the tree that bisection makes
    std::size_t place = 0;
  };
  using Stretches = std::vector<Stretch>;  // ascending by `from`

  static std::int64_t Prepare(Stretches& stretches, std::size_t begin, std::size_t end);
  // False as soon as `visit` is, for those that overlap `first` to `last`.
  static bool ForEach(const Stretches& stretches, std::size_t begin, std::size_t end,
                      std::int64_t first, std::int64_t last,
                      const std::function<bool(const Stretch&)>& visit);

  std::map<qv::kelvo::StreamID, Stretches> byCamera;
  Stretches all;
};

// The bookmarks in force. Worker thread only.
struct BookmarkTable {
  Bookmarks bookmarks;
  BookmarkIndex index;
  std::uint32_t casesChanges = 0;  // counts replacements; nothing reads it
  std::uint64_t revision = 0;      // counts replacements by something else

  void Replace(Bookmarks next);
};

}  // namespace qvsvr::kelvo
