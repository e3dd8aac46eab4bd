#include "search/SearchFile.h"

#include <algorithm>

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kPsBadArgument;
using qv::kelvo::kPsOk;

constexpr std::size_t kPacketRoom = 4'194'303;
constexpr std::size_t kReadAhead = 192 * 1024;
constexpr std::uint32_t kFramesPerFetch = 150;
constexpr std::size_t kMaxRangesAhead = 3;  // with the one that is waited for, a bucket's threads
constexpr std::uint64_t kMaxBytesAhead = qv::kelvo::BucketAccess::kPiece;  // of a range that grew

}  // namespace

SearchFile::SearchFile(SearchTargetFileSystem& fileSystem, PlaybackFile&& playbackFile)
    : target(fileSystem),
      file(std::move(playbackFile)),
      reader(fileSystem.MediaFiles()),
      packetBuffer(std::make_unique_for_overwrite<std::byte[]>(kPacketRoom)) {}

int SearchFile::Open() {
  if (const int error = target.Open(reader, file.path); error != kPsOk) return error;
  std::string root;
  const Scanner holder = target.FindHolder(file.path);
  mayBeCut = file.sendList.empty() && holder != nullptr && qv::kelvo::IsBucket(*holder, root);
  isHere = file.sendList.empty() && holder == nullptr;
  position = file.firstPosition;
  framesAhead = kFramesPerFetch;
  qv::kelvo::PSReader::Place place;
  place.cursor = file.cursor;
  for (const PlaybackFile::Stream& stream : file.streams) {
    streamStart[stream.number] = stream.start;
    place.consumed[stream.number] = stream.consumed;
  }
  if (position != 0) {
    if (const int error = reader.SetPlace(place); error != kPsOk) return error;
  }
  return AdvanceFrame();
}

int SearchFile::ReadFrame() {
  frame = {};
  frame.index = file.sendList.empty() ? position : file.sendList[position];
  frame.packet = {packetBuffer.get(), kPacketRoom};
  if (isHere) frame.readAhead = kReadAhead;
  frame.held = held;
  frame.userData = userDataBuffer;
  return reader.NextFrame(frame, file.selectedMask);
}

int SearchFile::AdvanceFrame() {
  while (position < file.endPosition) {
    if (const int error = LoadFrame(); error != kPsOk) return error;
    const std::uint32_t place = position++;
    if (IsPreRoll(place)) continue;
    frameTime = frame.Time();
    return kPsOk;
  }
  return kPsBadArgument;
}

int SearchFile::LoadFrame() {
  if (!ahead.empty() && ahead.front().first == position) {
    const bool isSmall = ahead.front().last - position <= kFramesPerFetch;
    const int error = AwaitFirstAhead();
    if (error != kPsOk && isSmall) return error;  // less of it may be there
  }
  const bool isWhole = IsWhole();
  int error = ReadFrame();
  if ((IsGood(error) && isWhole) || position < fetchedTwiceEnd) return error;
  // The cache may have let go of the file, which has come back as another one.
  if (position < fetchedEnd && Reopen()) error = ReadFrame();
  if (position < fetchedEnd && IsGood(error)) return error;
  const bool begins = IsGood(error);
  if (const int fetched = FetchFrames(error); fetched != kPsOk) return begins ? error : fetched;
  error = ReadFrame();
  if (!IsGood(error) && Reopen()) error = ReadFrame();
  return error;  // of a frame that is damaged in the archive, too: sent as it stands
}

bool SearchFile::IsGood(int error) const {
  return error == kPsOk && qv::kelvo::HasStartCode(frame.content);
}

bool SearchFile::Reopen() {
  if (!mayBeCut && file.sendList.empty()) return false;
  const qv::kelvo::PSReader::Place place = reader.GetPlace();
  return target.Open(reader, file.path) == kPsOk && reader.HasIndex() &&
         reader.SetPlace(place) == kPsOk;
}

// After a power cut. A frame is taken for whole once the next one has begun. To be asked before the
// frame is read.
bool SearchFile::IsWhole() {
  const std::uint32_t next = position + 1;
  if (!mayBeCut || next <= fetchedEnd || next >= file.endPosition) return true;
  qv::kelvo::PSReadFrame fields;
  fields.index = next;
  return reader.NextFrame(fields, file.selectedMask) == kPsOk &&
         reader.TestFrameStart(reader.GetPlace().cursor) == kPsOk;
}

bool SearchFile::IsPreRoll(std::uint32_t place) {
  std::uint32_t& start = streamStart[frame.stream];
  if (start == qv::kelvo::kAtFirstKey && frame.frameType <= qv::kelvo::kFrameI) start = place;
  return place < start;
}

int SearchFile::FetchFrames(int error) {
  const Scanner holder = target.FindHolder(file.path);
  if (holder == nullptr) {
    target.NoteUnreadable(file.path);
    return error;
  }
  if (frame.size == 0) return kPsBadArgument;  // not even its place is known
  // What is on its way already is left out.
  const std::uint32_t limit = ahead.empty() ? file.endPosition : ahead.front().first;
  const std::uint32_t last =
      file.sendList.empty() ? std::min(limit - 1, position + kFramesPerFetch) : position;
  const bool again = position < fetchedEnd;
  Fetch fetch;
  if (const int failed = StartFetch(holder, frame, last, fetch); failed != kPsOk) return failed;
  if (again) fetchedTwiceEnd = last + 1;
  if (ahead.empty() && file.sendList.empty()) {
    nextRange = last + 1;
    rangeEnd = reader.GetPlace();
    rangesAhead = 1;
    FetchAhead(holder);
  }
  return Await(holder, std::move(fetch), last);
}

int SearchFile::StartFetch(const Scanner& holder, const qv::kelvo::PSReadFrame& first,
                           std::uint32_t last, Fetch& fetch) {
  std::uint64_t end = first.fileOffset + first.size;
  if (file.sendList.empty()) {
    qv::kelvo::PSReadFrame lastFrame;
    lastFrame.index = last;
    if (const int error = reader.NextFrame(lastFrame, file.selectedMask); error != kPsOk) {
      return error;
    }
    end = lastFrame.fileOffset + lastFrame.size;
    const std::uint32_t more = last - first.index + kFramesPerFetch;
    if ((end - first.fileOffset) / (last - first.index + 1) * more < kMaxBytesAhead) {
      framesAhead = more;
    }
  }
  if (end <= first.fileOffset) return kPsBadArgument;
  fetch = target.Buckets().Begin(holder, file.path, first.fileOffset, end - first.fileOffset);
  return fetch.empty() ? kPsBadArgument : kPsOk;
}

void SearchFile::FetchAhead(const Scanner& holder) {
  const qv::kelvo::PSReader::Place here = reader.GetPlace();
  while (ahead.size() < rangesAhead && nextRange < file.endPosition) {
    const std::uint32_t last = std::min(file.endPosition - 1, nextRange + framesAhead);
    qv::kelvo::PSReadFrame first;
    first.index = nextRange;
    Fetch fetch;
    const bool isMissing = reader.SetPlace(rangeEnd) == kPsOk &&
                           reader.NextFrame(first, file.selectedMask) == kPsOk &&
                           reader.TestFrameStart(reader.GetPlace().cursor) != kPsOk;
    if (!isMissing || StartFetch(holder, first, last, fetch) != kPsOk) {
      nextRange = file.endPosition;  // a frame that is here ends the row, until one is missing
      break;
    }
    ahead.push_back({nextRange, last, holder, std::move(fetch)});
    nextRange = last + 1;
    rangeEnd = reader.GetPlace();
  }
  (void)reader.SetPlace(here);
}

int SearchFile::AwaitFirstAhead() {
  Range range = std::move(ahead.front());
  ahead.pop_front();
  rangesAhead = std::min(rangesAhead + 1, kMaxRangesAhead);
  FetchAhead(range.holder);
  return Await(range.holder, std::move(range.fetch), range.last);
}

int SearchFile::Await(const Scanner& holder, Fetch&& fetch, std::uint32_t last) {
  held.clear();
  playing = std::move(fetch);
  if (target.Buckets().Await(holder, playing)) {
    fetchedEnd = std::max(fetchedEnd, last + 1);
    for (const auto& ticket : playing) held.push_back({ticket.Offset(), ticket.Content()});
    return kPsOk;
  }
  ahead.clear();
  framesAhead = kFramesPerFetch;
  return kPsBadArgument;
}

qv::kelvo::StreamID SearchFile::GetStreamId() const {
  return qv::kelvo::MakeStreamID(qv::kelvo::ContextOf(file.id), qv::kelvo::ProviderOf(file.id),
                                 qv::kelvo::DeviceOf(file.id),
                                 qv::kelvo::ToldInput(file.id, frame.encoder, frame.stream));
}

}  // namespace qvsvr::kelvo
