#pragma once

#include <cstdint>

#include "search/PrepareFile.h"
#include "search/SearchRequest.h"
#include "search/SearchResult.h"
#include "search/SearchTargetFileSystem.h"

namespace qvsvr::kelvo {

// The walk of a search over the tree: hour by hour from the earliest directory that may hold a
// frame of the range, on the thread of the host's call. It opens what the names of an hour leave
// over, and of a listing only what isn't known from before. Between hours it may be cancelled, and
// owes nothing to the worker: it reads snapshots of the drives and targets, and a file that
// vanishes under it is one that isn't found.
class SearchBase {
 public:
  virtual ~SearchBase() = default;

  // Called after each hour with its local hour; false ends the walk.
  virtual bool ReportProgress(std::uint32_t /*hour*/) { return true; }
  // The moment to search from or to instead of `seconds`.
  virtual std::int64_t AdjustTime(std::int64_t seconds) { return seconds; }

  // Adds to `results` what the request finds and, unless it is a listing, to `files` what there is
  // to play back. Uses up `request.frameRequests`. False when cancelled. Blocks; may throw.
  [[nodiscard]] bool Run(SearchRequest& request, SearchTargetFileSystem& target,
                         SearchResults& results, PlaybackFiles& files);
};

}  // namespace qvsvr::kelvo
