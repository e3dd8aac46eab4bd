#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>

#include <tinyxml.h>

#include "tree/FileSystemBase.h"
#include "tree/RequestKey.h"

namespace qvsvr::kelvo {

using qv::kelvo::RequestKey;

// Moments in seconds since 1970 UTC, ascending.
using Moments = std::deque<std::int64_t>;

// What a search asks for: frames of [start, end), in seconds since 1970 UTC.
struct TimeRange {
  std::int64_t start = 0;
  std::int64_t end = 0;

  [[nodiscard]] bool Has(std::int64_t second) const { return second >= start && second < end; }

  // Whether frames of the range may lie in a stretch from `first` to `last`. An end that is no date
  // (-1) tells nothing, and a stretch that ends ahead of its start, as one over a clock that was
  // set back does, may hold anything.
  [[nodiscard]] bool MayReach(std::int64_t first, std::int64_t last) const {
    const bool setBack = last >= 0 && last < first;
    return setBack || ((last < 0 || last >= start) && first < end);
  }
};

// What a client asks for (docs/host-interface.md).
struct SearchRequest {
  std::int32_t type = 0;   // 0 lists footage; others also play it back
  std::int32_t start = 0;  // seconds since 1970 UTC
  std::int32_t end = 0;
  std::int32_t resolution = 0;  // seconds

  bool searchLocal = true;
  bool allArchives = true;
  qv::kelvo::ArchiveFilter archives;  // when not all of them

  std::set<RequestKey> keys;                    // the inputs
  std::map<RequestKey, Moments> frameRequests;  // of video inputs: moments that want a picture

  // `resolution` stands for a length shorter than the range.
  [[nodiscard]] bool IsThinned() const {
    return resolution != 0 && resolution < std::int64_t{end} - start;
  }
};

// Reads a request document. What is missing stays as it is in a new SearchRequest; without a type
// or a range nothing else is read.
[[nodiscard]] SearchRequest ParseSearchRequest(const TiXmlDocument& document);

}  // namespace qvsvr::kelvo
