#include "search/ListRuns.h"

namespace qvsvr::kelvo {

bool ListRuns(qv::kelvo::PSReader& reader, qv::kelvo::CFileInfo& info, std::int64_t resolution,
              std::vector<FileRun>& runs) {
  using qv::kelvo::SecondsOf;
  runs.clear();
  if (!FillStreamRows(reader, info)) return false;
  const bool oneRunDoes = !info.RanBack() && resolution >= info.endTime - info.startTime;
  if (oneRunDoes || !reader.HasRunTable() || reader.GetRunCount() == 0) {
    for (unsigned stream = 0; stream < qv::kelvo::kStreamCount; ++stream) {
      const qv::kelvo::StreamRow& row = info.streamRows[stream];
      if (row.frames == 0) continue;
      runs.push_back({static_cast<std::uint8_t>(stream), row.flags, row.firstTime, row.lastTime});
    }
    return true;
  }
  for (std::uint32_t number = 0; number < reader.GetRunCount(); ++number) {
    qv::kelvo::PSRun run;
    if (reader.GetRun(number, run) != qv::kelvo::kPsOk) return false;
    runs.push_back({run.stream, run.flags, SecondsOf(run.first), SecondsOf(run.last)});
  }
  return true;
}

}  // namespace qvsvr::kelvo
