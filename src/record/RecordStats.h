#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace qvsvr::kelvo {

// Counters of the record worker, written and read by that thread only, and so without locks; short
// names are those of the log lines. Some count from the start of the process, some the minute at
// hand. Indexes of the frame arrays are frame types: 0 audio, 1 I, 2 P, 3 B.
struct RecordStats {
  // Messages queued behind the last one that was taken, and how long the oldest of them has waited.
  std::uint64_t InQ = 0, InQAgeMs = 0;
  std::uint64_t ExecutedLastMin = 0, ExecutedTotal = 0;  // messages handled
  // Microseconds for handling a message: the last one, the least, the most.
  std::uint64_t msgcur = 0, msgmin = std::numeric_limits<std::uint64_t>::max(), msgmax = 0;
  // The same for the periodic work behind a message.
  std::uint64_t nmsgcur = 0, nmsgmin = std::numeric_limits<std::uint64_t>::max(), nmsgmax = 0;

  // What has come in, since the start: frames (audio and video), PTZ messages, ...
  std::uint64_t eav = 0, eptz = 0;
  // ... configurations with Devices, Events, Archives, Storage and Cases, ...
  std::uint64_t idev = 0, ievt = 0, iarc = 0, istg = 0, icas = 0;
  // ... and actions with Devices, Archives and Storage. Each counts messages, not their elements.
  std::uint64_t adev = 0, aarc = 0, astg = 0;

  // The minute's frames: refused as packets that don't begin as one, or of an unknown channel; by
  // the decision; and, of those written, with the flag or during camera movement.
  std::uint64_t PES = 0, Ch = 0;
  std::array<std::uint64_t, 4> Dropped{}, Written{};
  std::uint64_t Motion = 0, Alarm = 0, PTZ = 0;

  // Bytes written in the minute at hand, and over the minutes that had any.
  std::uint64_t Periods = 0, TotalBytes = 0, LastBytes = 0;
  std::uint64_t AverageBytes = 0, MedianBytes = 0, MinBytes = 0, MaxBytes = 0;
};

// The process-wide block.
[[nodiscard]] RecordStats& Stats();

// Closes a minute: folds LastBytes into the totals, logs the statistics lines at level 0 and
// zeroes the minute's fields but ExecutedLastMin.
void PublishStats(RecordStats& stats);

// How much a slot writes, for the recording rate in the status report, which needs one plain sum.
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
