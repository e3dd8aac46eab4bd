#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvsvr::kelvo {

// Sums bytes in buckets of `periodSeconds`, keeping the `limit` newest (0: all). With a period of 0
// there is one bucket, a plain sum. Times are steady nanoseconds. One thread.
class RateMeter {
 public:
  explicit RateMeter(std::uint32_t periodSeconds = 0, std::size_t limit = 0)
      : Period(periodSeconds), Limit(limit) {}

  void Add(std::uint64_t bytes, std::int64_t nowNs);

  // False, with the outputs as they were, when nothing was added since the last clear.
  // `milliseconds` is the time covered, up to the last Add.
  [[nodiscard]] bool Read(std::uint64_t& bytes, std::uint64_t& milliseconds, bool clear);

 private:
  struct Bucket {
    std::int64_t start;
    std::uint64_t bytes;
  };
  std::uint32_t Period;
  std::size_t Limit;
  std::vector<Bucket> Buckets;  // oldest first
  std::int64_t LastUpdate = 0;
};

}  // namespace qvsvr::kelvo
