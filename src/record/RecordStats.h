#pragma once

#include <array>
#include <cstdint>
#include <limits>

namespace qvsvr::kelvo {

// Counters of the record worker, written by that thread only. Indexes of the frame arrays are frame
// types: 0 audio, 1 I, 2 P, 3 B.
struct RecordStats {
  std::uint64_t InQ = 0, InQAgeMs = 0;  // and how long the oldest of them has waited
  std::uint64_t ExecutedLastMin = 0, ExecutedTotal = 0;
  std::uint64_t msgcur = 0, msgmin = std::numeric_limits<std::uint64_t>::max(), msgmax = 0;
  std::uint64_t nmsgcur = 0, nmsgmin = std::numeric_limits<std::uint64_t>::max(), nmsgmax = 0;
  std::uint64_t eav = 0, eptz = 0;
  std::uint64_t idev = 0, ievt = 0, iarc = 0, istg = 0, icas = 0;
  std::uint64_t adev = 0, aarc = 0, astg = 0;
  std::uint64_t PES = 0, Ch = 0;
  std::array<std::uint64_t, 4> Dropped{}, Written{};
  std::uint64_t Motion = 0, Alarm = 0, PTZ = 0;
  std::uint64_t Periods = 0, TotalBytes = 0, LastBytes = 0;
  std::uint64_t AverageBytes = 0, MedianBytes = 0, MinBytes = 0, MaxBytes = 0;
};

// The process-wide block.
[[nodiscard]] RecordStats& Stats();

// Closes a minute: folds LastBytes into the totals, logs the statistics lines at level 0 and
// zeroes the minute's fields but ExecutedLastMin.
void PublishStats(RecordStats& stats);

}  // namespace qvsvr::kelvo
