#include "record/RateMeter.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kNsPerMs = 1'000'000;

}  // namespace

void RateMeter::Add(std::uint64_t bytes, std::int64_t nowNs) {
  LastUpdate = nowNs;
  const bool full = Buckets.empty() || (Period != 0 && nowNs - Buckets.back().start >=
                                                           std::int64_t{Period} * kNsPerSecond);
  if (!full) {
    Buckets.back().bytes += bytes;
    return;
  }
  Buckets.push_back({nowNs, bytes});
  if (Limit != 0 && Buckets.size() > Limit) Buckets.erase(Buckets.begin());
}

bool RateMeter::Read(std::uint64_t& bytes, std::uint64_t& milliseconds, bool clear) {
  if (Buckets.empty()) return false;
  bytes = 0;
  for (const Bucket& bucket : Buckets) bytes += bucket.bytes;
  // Each bucket lasts up to the next, so that the lengths add up to the whole span.
  milliseconds = static_cast<std::uint64_t>((LastUpdate - Buckets.front().start) / kNsPerMs);
  if (clear) Buckets.clear();
  return true;
}

}  // namespace qvsvr::kelvo
