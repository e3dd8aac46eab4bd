#include "record/RecordStats.h"

#include <algorithm>

#include "host/Log.h"
#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {
namespace {

using Count = unsigned long long;

// A minute without bytes changes nothing, or the least would soon be 0 for good.
void FoldMinute(RecordStats& stats) {
  if (stats.LastBytes == 0) return;
  ++stats.Periods;
  stats.TotalBytes += stats.LastBytes;
  if (stats.MinBytes == 0) stats.MinBytes = stats.LastBytes;
  stats.MinBytes = std::min(stats.MinBytes, stats.LastBytes);
  stats.MaxBytes = std::max(stats.MaxBytes, stats.LastBytes);
  stats.AverageBytes = stats.TotalBytes / stats.Periods;
  // The middle of the range, which needs no history.
  stats.MedianBytes = (stats.MinBytes + stats.MaxBytes) >> 1;
}

// Made whether or not the host shows them: once a minute, eight lines.
void LogStats(const RecordStats& stats) {
  LogPrintf(LogTrace, "MsgQ - InQ:%s, ExecutedLastMin: %s, ExecutedTotal:%s",
            FormatCount(stats.InQ).c_str(), FormatCount(stats.ExecutedLastMin).c_str(),
            FormatCount(stats.ExecutedTotal).c_str());
  LogPrintf(LogTrace,
            "Wrk - msgcur:%sus, msgmin:%sus, msgmax:%sus, nmsgcur:%sus, nmsgmin:%sus, nmsgmax:%sus",
            FormatCount(stats.msgcur).c_str(), FormatCount(stats.msgmin).c_str(),
            FormatCount(stats.msgmax).c_str(), FormatCount(stats.nmsgcur).c_str(),
            FormatCount(stats.nmsgmin).c_str(), FormatCount(stats.nmsgmax).c_str());
  LogPrintf(LogTrace,
            "eCnt - eav:%s, eptz:%llu, idev:%llu, ievt:%llu, iarc:%llu, istg:%llu, icas:%llu",
            FormatCount(stats.eav).c_str(), Count{stats.eptz}, Count{stats.idev}, Count{stats.ievt},
            Count{stats.iarc}, Count{stats.istg}, Count{stats.icas});
  LogPrintf(LogTrace, "eCnt - adev:%llu, aarc:%llu, astg:%llu", Count{stats.adev},
            Count{stats.aarc}, Count{stats.astg});
  LogPrintf(LogTrace, "Frames Dropped - I: %s P: %s B: %s Audio: %s Ch: %s PES: %s",
            FormatCount(stats.Dropped[KELVO_FRAME_I]).c_str(),
            FormatCount(stats.Dropped[KELVO_FRAME_P]).c_str(),
            FormatCount(stats.Dropped[KELVO_FRAME_B]).c_str(),
            FormatCount(stats.Dropped[KELVO_FRAME_AUDIO]).c_str(), FormatCount(stats.Ch).c_str(),
            FormatCount(stats.PES).c_str());
  LogPrintf(LogTrace, "Frames Written - I: %s P: %s B: %s Audio: %s Motion: %s Alarm: %s PTZ: %s",
            FormatCount(stats.Written[KELVO_FRAME_I]).c_str(),
            FormatCount(stats.Written[KELVO_FRAME_P]).c_str(),
            FormatCount(stats.Written[KELVO_FRAME_B]).c_str(),
            FormatCount(stats.Written[KELVO_FRAME_AUDIO]).c_str(),
            FormatCount(stats.Motion).c_str(), FormatCount(stats.Alarm).c_str(),
            FormatCount(stats.PTZ).c_str());
  LogPrintf(LogTrace, "Bytes Written - Last: %s Min: %s Max: %s Median: %s Average: %s",
            FormatCount(stats.LastBytes).c_str(), FormatCount(stats.MinBytes).c_str(),
            FormatCount(stats.MaxBytes).c_str(), FormatCount(stats.MedianBytes).c_str(),
            FormatCount(stats.AverageBytes).c_str());
  LogPrintf(LogTrace, "MsgQ - InQ:%s, oldest:%sms", FormatCount(stats.InQ).c_str(),
            FormatCount(stats.InQAgeMs).c_str());
}

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kNsPerMs = 1'000'000;

}  // namespace

RecordStats& Stats() {
  static constinit RecordStats stats;
  return stats;
}

void PublishStats(RecordStats& stats) {
  FoldMinute(stats);
  LogStats(stats);
  stats.PES = 0;
  stats.Ch = 0;
  stats.Dropped.fill(0);
  stats.Written.fill(0);
  stats.Motion = 0;
  stats.Alarm = 0;
  stats.PTZ = 0;
  stats.LastBytes = 0;
}

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
