#include "search/SearchResult.h"

#include <algorithm>
#include <cstddef>

#include "host/Log.h"
#include "host/Xml.h"
#include "search/ResultDocument.h"

namespace qvsvr::kelvo {

using qv::kelvo::CFileInfo;
using qv::kelvo::kVideoStreams;
using qv::kelvo::StreamRow;

namespace {

void Add(ResultValues& known, const ResultValues& values) {
  known.first = std::min(known.first, values.first);
  known.last = std::max(known.last, values.last);
  known.count += values.count;
  known.flags |= values.flags;
}

}  // namespace

SearchResults::SearchResults(const SearchRequest& request) {
  for (const RequestKey key : request.keys) inputs[key];
}

SearchResults::Records* SearchResults::Find(const CFileInfo& info, unsigned stream,
                                            std::uint8_t& streamId) {
  if (stream >= qv::kelvo::kStreamCount) return nullptr;
  const StreamRow& row = info.streamRows[stream];
  const bool audio = stream >= kVideoStreams;
  const std::uint32_t input = row.channel + (audio ? qv::kelvo::kFirstAudioInput : 0u);
  const auto found = inputs.find(qv::kelvo::MakeRequestKey(qv::kelvo::ProviderOf(info.id),
                                                           qv::kelvo::DeviceOf(info.id),
                                                           qv::kelvo::ContextOf(info.id), input));
  if (found == inputs.end()) return nullptr;

  // The file of one input has one video and one audio stream.
  const bool wide = qv::kelvo::IsWideInput(qv::kelvo::InputOf(info.id));
  if (!wide && stream % kVideoStreams != 0) return nullptr;
  streamId = static_cast<std::uint8_t>(qv::kelvo::ToldInput(info.id, row.input, stream));
  return &found->second;
}

void SearchResults::Records::Merge(const ResultKey& key, const ResultValues& values) {
  if (!records.empty() && records.back().first == key) {
    Add(records.back().second, values);
    return;
  }
  // Before it grows, what belongs together is put together.
  if (records.size() == settleAt) settleAt = std::max(settleAt, 2 * Settle().size());
  records.emplace_back(key, values);
}

const std::deque<std::pair<ResultKey, ResultValues>>& SearchResults::Records::Settle() {
  const auto byKey = [](const auto& a, const auto& b) { return a.first < b.first; };
  if (!std::ranges::is_sorted(records, byKey)) std::ranges::sort(records, byKey);
  std::size_t kept = 0;
  for (std::size_t i = 1; i < records.size(); ++i) {
    if (records[i].first == records[kept].first) {
      Add(records[kept].second, records[i].second);
    } else if (++kept != i) {
      records[kept] = records[i];
    }
  }
  if (!records.empty()) records.resize(kept + 1);
  return records;
}

void SearchResults::AddRun(const CFileInfo& info, const FileRun& run, std::int64_t start,
                           std::int64_t resolution) {
  ResultKey key;
  Records* records = Find(info, run.stream, key.streamId);
  if (records == nullptr) return;
  key.bucket = (run.first - start) / (resolution == 0 ? 1 : resolution);
  records->Merge(key, {run.first, run.last, 0, run.flags});
}

void SearchResults::AddRows(const CFileInfo& info, std::int64_t start) {
  for (unsigned stream = 0; stream < qv::kelvo::kStreamCount; ++stream) {
    const StreamRow& row = info.streamRows[stream];
    if ((info.selectedMask >> stream & 1u) == 0) continue;
    ResultKey key;
    Records* records = Find(info, stream, key.streamId);
    if (records == nullptr) continue;
    key.bucket = row.firstTime - start;
    key.standard = row.codec;
    if (stream < kVideoStreams) {
      key.width16 = row.width16;
      key.height16 = row.height16;
    } else {
      key.bufSizeSamples = row.bufSizeSamples;
      key.sampleRate = row.sampleRate;
    }
    records->Merge(key, {row.firstTime, row.lastTime, row.frames, row.flags});
  }
}

std::string SearchResults::Document(const SearchRequest& request) {
  std::size_t count = 0;
  for (auto& entry : inputs) count += entry.second.Settle().size();
  ResultDocument document(request, count);
  for (auto& [key, records] : inputs) {
    for (const auto& [recordKey, values] : records.Settle()) document.Add(key, recordKey, values);
  }
  return document.Finish();
}

}  // namespace qvsvr::kelvo
