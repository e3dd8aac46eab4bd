#include "record/StreamSet.h"

#include <algorithm>

#include "media/StreamId.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint32_t kEncoderStream = qv::kelvo::kWideInput;  // plus the encoder
constexpr std::uint32_t kMultiplexedStream = qv::kelvo::kWholeDevice;

RecordStream* Lookup(const std::unordered_map<std::uint32_t, RecordStream*>& index,
                     std::uint32_t id) {
  const auto found = index.find(id);
  return found == index.end() ? nullptr : found->second;
}

}  // namespace

RecordStream* StreamSet::Find(std::uint32_t streamId) const {
  return Lookup(ByStreamId, streamId);
}

RecordStream& StreamSet::Add(std::unique_ptr<RecordStream> stream) {
  RecordStream& added = *stream;
  Streams.push_back(std::move(stream));
  ByStreamId.emplace(added.StreamId, &added);
  Changes();
  added.ReportFileChangesTo(&FilesChanged);
  return added;
}

void StreamSet::Remove(RecordStream* stream) {
  const auto place = std::ranges::find(Streams, stream, &std::unique_ptr<RecordStream>::get);
  if (place == Streams.end()) return;
  ByStreamId.erase(stream->StreamId);
  Changes();
  Streams.erase(place);
}

RecordStream* StreamSet::Route(std::uint32_t provider) {
  if (RoutesStale) RefreshRoutes();
  if (provider != 0) {
    if (RecordStream* stream = Lookup(ByEitherId, provider)) return stream;
  }
  const std::uint32_t encoder = qv::kelvo::InputOf(provider) >> 5;
  if (RecordStream* stream = Find((provider & 0xFFFFFF00u) | (kEncoderStream + encoder))) {
    return stream;
  }
  return Find(
      qv::kelvo::MakeStreamID(0, provider, qv::kelvo::DeviceOf(provider), kMultiplexedStream));
}

// An earlier stream keeps an id that a later one has, too.
void StreamSet::RefreshRoutes() {
  ByEitherId.clear();
  for (const auto& stream : Streams) {
    ByEitherId.emplace(stream->StreamId, stream.get());
    if (stream->AltId != 0) ByEitherId.emplace(stream->AltId, stream.get());
  }
  RoutesStale = false;
}

}  // namespace qvsvr::kelvo
