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

void SearchResults::Merge(Records& records, const ResultKey& key, const ResultValues& values) {
  const auto [entry, isNew] = records.emplace(key, values);
  if (isNew) return;
  ResultValues& known = entry->second;
  known.first = std::min(known.first, values.first);
  known.last = std::max(known.last, values.last);
  known.count += values.count;
  known.flags |= values.flags;
}

void SearchResults::AddRun(const CFileInfo& info, const FileRun& run, std::int64_t start,
                           std::int64_t resolution) {
  ResultKey key;
  Records* records = Find(info, run.stream, key.streamId);
  if (records == nullptr) return;
  key.bucket = (run.first - start) / (resolution == 0 ? 1 : resolution);
  Merge(*records, key, {run.first, run.last, 0, run.flags});
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
    Merge(*records, key, {row.firstTime, row.lastTime, row.frames, row.flags});
  }
}

std::string SearchResults::Document(const SearchRequest& request) const {
  std::size_t count = 0;
  for (const auto& entry : inputs) count += entry.second.size();
  ResultDocument document(request, count);
  for (const auto& [key, records] : inputs) {
    for (const auto& [recordKey, values] : records) document.Add(key, recordKey, values);
  }
  return document.Finish();
}

}  // namespace qvsvr::kelvo
