#include "search/PrepareFile.h"

#include <algorithm>
#include <optional>

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::CFileInfo;
using qv::kelvo::kAtFirstKey;
using qv::kelvo::kStreamCount;
using qv::kelvo::kVideoStreams;
using qv::kelvo::PSReader;
using qv::kelvo::PSReadFrame;
using qv::kelvo::StreamRow;

bool StandsAlone(const PSReadFrame& frame) {
  return frame.frameType <= qv::kelvo::kFrameI;
}

std::int64_t SecondOf(const PSReadFrame& frame) {
  return frame.Time() / 1000;
}

void SelectStreams(CFileInfo& info, const FileRequest& request) {
  info.selectedMask = 0;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    const StreamRow& row = info.streamRows[stream];
    const std::uint32_t mask = stream < kVideoStreams ? request.videoMask : request.audioMask;
    const bool wanted = row.frames != 0 && (mask >> (row.channel & 31u) & 1u) != 0;
    if (wanted && request.range.MayReach(row.firstTime, row.lastTime)) {
      info.selectedMask |= 1u << stream;
    }
  }
}

void ClearFrames(CFileInfo& info) {
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    if ((info.selectedMask >> stream & 1u) != 0) info.streamRows[stream].frames = 0;
  }
}

// Calls `visit` with the position and fields of each chosen frame, in file order, until it returns
// false. False when a frame can't be read.
template <typename Visit>
bool ForEachFrame(PSReader& reader, std::uint32_t mask, Visit visit) {
  const std::uint32_t total = reader.CountFrames(mask);
  for (std::uint32_t position = 0; position < total; ++position) {
    PSReadFrame frame;
    frame.index = position;
    if (reader.NextFrame(frame, mask) != qv::kelvo::kPsOk) return false;
    if (!visit(position, frame)) break;
  }
  return true;
}

// With `anew` the stream's row forgets what it told.
void AddToSendList(CFileInfo& info, unsigned stream, std::uint32_t position, std::int64_t time,
                   bool anew) {
  StreamRow& row = info.streamRows[stream];
  if (anew) {
    row.firstTime = time;
    row.frames = 0;
  }
  row.lastTime = time;
  ++row.frames;
  info.sendList.push_back(position);
}

bool FinishSendList(CFileInfo& info) {
  info.endPosition = static_cast<std::uint32_t>(info.sendList.size());
  return info.endPosition != 0;
}

bool AnyLeft(const MomentTable& table) {
  return std::ranges::any_of(table, [](const Moments* m) { return m != nullptr && !m->empty(); });
}

// At each moment the stream's last key frame so far; moments ahead of the file's end are used up.
bool PrepareMoments(PSReader& reader, CFileInfo& info, const MomentTable& table) {
  struct Key {
    std::uint32_t position;
    std::int64_t time;
  };
  std::array<std::optional<Key>, kStreamCount> pending;
  ClearFrames(info);
  const auto visit = [&](std::uint32_t position, const PSReadFrame& frame) {
    if (frame.stream >= kVideoStreams) return true;  // sound isn't a picture
    std::optional<Key>& key = pending[frame.stream];
    const std::int64_t time = SecondOf(frame);
    if (StandsAlone(frame)) key = Key{position, time};
    Moments* moments = table[info.streamRows[frame.stream].channel & 31u];
    if (moments == nullptr || moments->empty()) return true;
    while (!moments->empty() && moments->front() <= time) {
      moments->pop_front();
      if (!key) continue;
      const bool isFirst = info.streamRows[frame.stream].frames == 0;
      AddToSendList(info, frame.stream, key->position, key->time, isFirst);
      key.reset();
    }
    return !moments->empty() || AnyLeft(table);
  };
  return ForEachFrame(reader, info.selectedMask, visit) && FinishSendList(info);
}

// One picture per bucket over all chosen streams. Only the row of the file's first picture starts
// anew; what another stream gives counts on top of all its frames.
bool PrepareBuckets(PSReader& reader, CFileInfo& info, const FileRequest& request,
                    std::int64_t& bucket) {
  const auto visit = [&](std::uint32_t position, const PSReadFrame& frame) {
    const std::int64_t time = SecondOf(frame);
    if (!StandsAlone(frame) || !request.range.Has(time)) return true;
    const std::int64_t own = (time - request.range.start) / request.resolution;
    if (own == bucket) return true;
    bucket = own;
    AddToSendList(info, frame.stream, position, time, info.sendList.empty());
    return true;
  };
  return ForEachFrame(reader, info.selectedMask, visit) && FinishSendList(info);
}

// Of a file whose clock was set back each frame is judged by itself; it brings along what lies
// ahead of it in its group.
bool PrepareOneByOne(PSReader& reader, CFileInfo& info, const TimeRange& range) {
  struct Ahead {
    std::uint32_t position;
    std::int64_t time;
  };
  std::array<std::vector<Ahead>, kStreamCount> groups;  // what of them wasn't chosen
  std::uint32_t begun = 0;                              // streams whose first key frame has come
  ClearFrames(info);
  info.endTime = info.startTime;
  const auto visit = [&](std::uint32_t position, const PSReadFrame& frame) {
    std::vector<Ahead>& group = groups[frame.stream];
    const std::int64_t time = SecondOf(frame);
    if (StandsAlone(frame)) {
      group.clear();
      begun |= 1u << frame.stream;
    }
    if ((begun >> frame.stream & 1u) == 0) return true;
    group.push_back({position, time});
    if (!range.Has(time)) return true;
    for (const Ahead& one : group) {
      const bool isFirst = info.streamRows[frame.stream].frames == 0;
      AddToSendList(info, frame.stream, one.position, one.time, isFirst);
      info.endTime = std::max(info.endTime, one.time);
    }
    group.clear();
    return true;
  };
  if (!ForEachFrame(reader, info.selectedMask, visit)) return false;
  std::ranges::sort(info.sendList);
  return FinishSendList(info);
}

// Everything of the range, each stream from its own key frame on.
class RangeWalk {
 public:
  RangeWalk(PSReader& fileReader, CFileInfo& file, const TimeRange& fileRange)
      : reader(fileReader),
        info(file),
        range(fileRange),
        endsInRange(file.endTime < fileRange.end) {}

  bool Run() {
    info.endPosition = reader.CountFrames(info.selectedMask);
    ClearFrames(info);
    const auto visit = [this](std::uint32_t position, const PSReadFrame& frame) {
      return reached ? AddInside(position, frame) : AddAhead(position, frame);
    };
    if (!ForEachFrame(reader, info.selectedMask, visit) || pastRange) return false;
    Finish();
    return true;
  }

 private:
  struct Start {
    std::uint32_t position = kAtFirstKey;
    std::uint32_t ordinal = 0;  // of the key frame within its stream
    PSReader::Place place;
  };

  void StartStream(std::uint32_t position, const PSReadFrame& frame) {
    starts[frame.stream] = {position, frame.index, reader.GetPlace()};
    info.streamRows[frame.stream].firstTime = SecondOf(frame);
    info.streamRows[frame.stream].frames = 0;
  }

  void Count(const PSReadFrame& frame) {
    if (starts[frame.stream].position == kAtFirstKey) return;
    StreamRow& row = info.streamRows[frame.stream];
    ++row.frames;
    if (!endsInRange) row.lastTime = SecondOf(frame);
  }

  bool AddAhead(std::uint32_t position, const PSReadFrame& frame) {
    if (StandsAlone(frame)) StartStream(position, frame);
    Count(frame);
    const std::int64_t time = SecondOf(frame);
    if (time < range.start) return true;
    reached = true;
    pastRange = time >= range.end;
    stood = position;
    stoodPlace = reader.GetPlace();
    return !pastRange && !endsInRange;  // the rest needs no look
  }

  bool AddInside(std::uint32_t position, const PSReadFrame& frame) {
    if (SecondOf(frame) >= range.end) {
      info.endPosition = position;
      return false;
    }
    const bool unknown = starts[frame.stream].position == kAtFirstKey;
    if (unknown && StandsAlone(frame)) StartStream(position, frame);
    Count(frame);
    return true;
  }

  void Finish() {
    info.firstPosition = reached ? stood : info.endPosition;
    info.place = stoodPlace;
    for (unsigned stream = 0; stream < kStreamCount; ++stream) {
      if ((info.selectedMask >> stream & 1u) == 0) continue;
      const Start& start = starts[stream];
      info.streamStart[stream] = start.position;
      if (start.position < info.firstPosition) {
        info.firstPosition = start.position;
        info.place = start.place;
      }
      if (endsInRange) {
        info.streamRows[stream].frames =
            reader.GetFrameCount(static_cast<std::uint16_t>(stream)) - start.ordinal;
      }
    }
  }

  PSReader& reader;
  CFileInfo& info;
  const TimeRange& range;
  const bool endsInRange;
  bool reached = false;
  bool pastRange = false;  // the first frame that isn't before the range is behind it
  std::uint32_t stood = 0;
  PSReader::Place stoodPlace;
  std::array<Start, kStreamCount> starts;
};

}  // namespace

bool PrepareFile(PSReader& reader, CFileInfo& info, const FileRequest& request,
                 std::int64_t& bucket) {
  if (!FillStreamRows(reader, info)) return false;
  info.firstPosition = info.endPosition = 0;
  info.place = {};
  info.streamStart = {};
  info.sendList.clear();
  SelectStreams(info, request);
  if (info.selectedMask == 0) return false;
  if (request.moments != nullptr) return PrepareMoments(reader, info, *request.moments);
  if (request.resolution != 0 && request.resolution < request.range.end - request.range.start) {
    return PrepareBuckets(reader, info, request, bucket);
  }
  if (info.RanBack()) return PrepareOneByOne(reader, info, request.range);
  return RangeWalk(reader, info, request.range).Run();
}

PlaybackFile::PlaybackFile(const qv::kelvo::CFileInfo& info)
    : path(info.path),
      id(info.id),
      selectedMask(info.selectedMask),
      firstPosition(info.firstPosition),
      endPosition(info.endPosition),
      cursor(info.place.cursor),
      sendList(info.sendList),
      startTime(info.startTime),
      endTime(info.endTime) {
  std::size_t count = 0;
  for (unsigned n = 0; n < qv::kelvo::kStreamCount; ++n) count += selectedMask >> n & 1u;
  streams.reserve(count);
  for (unsigned n = 0; n < qv::kelvo::kStreamCount; ++n) {
    if ((selectedMask >> n & 1u) == 0) continue;
    streams.push_back({info.streamStart[n], info.place.consumed[n], static_cast<std::uint8_t>(n)});
  }
}

}  // namespace qvsvr::kelvo
