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
