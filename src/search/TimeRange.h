#pragma once

#include <cstdint>

namespace qvsvr::kelvo {

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

}  // namespace qvsvr::kelvo
