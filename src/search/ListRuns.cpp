#include "search/ListRuns.h"

namespace qvsvr::kelvo {

namespace {

using qv::kelvo::CFileInfo;

// Whether the runs make no difference.
bool OneRunDoes(const CFileInfo& info, std::int64_t resolution) {
  return !info.RanBack() && resolution >= info.endTime - info.startTime;
}

void ListStreams(const CFileInfo& info, std::vector<FileRun>& runs) {
  for (unsigned stream = 0; stream < qv::kelvo::kStreamCount; ++stream) {
    const qv::kelvo::StreamRow& row = info.streamRows[stream];
    if (row.frames == 0) continue;
    runs.push_back({static_cast<std::uint8_t>(stream), row.flags, row.firstTime, row.lastTime});
  }
}

}  // namespace

void ListRuns(const qv::kelvo::RunTable& table, CFileInfo& info, std::int64_t resolution,
              std::vector<FileRun>& runs) {
  using qv::kelvo::SecondsOf;
  runs.clear();
  FillStreamRows(table, info);
  if (OneRunDoes(info, resolution)) return ListStreams(info, runs);
  for (const qv::kelvo::PsiRunRecord& run : table.runs) {
    runs.push_back({run.stream, run.flags, SecondsOf({run.firstDate, run.firstMs}),
                    SecondsOf({run.lastDate, run.lastMs})});
  }
}

bool ListRuns(qv::kelvo::PSReader& reader, CFileInfo& info, std::int64_t resolution,
              std::vector<FileRun>& runs) {
  using qv::kelvo::SecondsOf;
  runs.clear();
  if (!FillStreamRows(reader, info)) return false;
  if (OneRunDoes(info, resolution) || !reader.HasRunTable() || reader.GetRunCount() == 0) {
    ListStreams(info, runs);
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
