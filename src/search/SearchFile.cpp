#include "search/SearchFile.h"

#include <algorithm>

#include "tree/BucketFetch.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kPsBadArgument;
using qv::kelvo::kPsOk;

constexpr std::size_t kPacketRoom = 4'194'303;
constexpr std::uint32_t kFramesPerFetch = 150;
constexpr std::size_t kMaxRangesAhead = 3;  // with the one that is waited for, a bucket's threads

}  // namespace

SearchFile::SearchFile(SearchTargetFileSystem& fileSystem, PlaybackFile&& playbackFile)
    : target(fileSystem),
      file(std::move(playbackFile)),
      reader(fileSystem.MediaFiles()),
      packetBuffer(std::make_unique_for_overwrite<std::byte[]>(kPacketRoom)) {}

int SearchFile::Open() {
  if (const int error = reader.Open(file.path); error != kPsOk) return error;
  std::string root;
  const Scanner holder = FindHolder();
  mayBeCut = file.sendList.empty() && holder != nullptr && qv::kelvo::IsBucket(*holder, root);
  position = file.firstPosition;
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
  frame.userData = userDataBuffer;
  return reader.NextFrame(frame, file.selectedMask);
}

int SearchFile::AdvanceFrame() {
  while (position < file.endPosition) {
    if (!ahead.empty() && ahead.front().first == position) {
      if (const int error = AwaitFirstAhead(); error != kPsOk) return error;
    }
    const bool isWhole = IsWhole();
    int error = ReadFrame();
    const bool begins = error == kPsOk && qv::kelvo::HasStartCode({packetBuffer.get(), 3});
    if (!begins || !isWhole) {
      // The frame isn't on this disk, or is damaged: then it is sent as it stands.
      const Scanner holder = FindHolder();
      const int fetched = holder != nullptr ? FetchFromArchive(holder) : error;
      if (fetched == kPsOk) {
        error = ReadFrame();
      } else if (!begins) {
        error = fetched;
      }
    }
    if (error != kPsOk) return error;
    const std::uint32_t place = position++;
    if (IsPreRoll(place)) continue;
    frameTime = frame.Time();
    return kPsOk;
  }
  return kPsBadArgument;
}

// Another search may be bringing the frame down right now. A range is written from front to back,
// so that a frame is whole once the next one has begun. To be asked before the frame is read.
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

SearchFile::Scanner SearchFile::FindHolder() {
  qv::kelvo::TargetList targets;
  target.GetTargets(targets, qv::kelvo::kVolumesLocal | qv::kelvo::kVolumesArchive, nullptr);
  const auto holder = std::ranges::find_if(
      targets, [this](const auto& archive) { return archive->IsWithinMount(file.path); });
  return holder == targets.end() ? nullptr : *holder;
}

// Brings down the frame at `position` and, where frames follow each other, some more.
int SearchFile::FetchFromArchive(const Scanner& holder) {
  if (frame.size == 0) return kPsBadArgument;  // not even its place is known
  Transfer transfer;
  if (!file.sendList.empty()) {
    const int error = StartFetch(holder, frame, position, transfer);
    return error != kPsOk ? error : Await(transfer, position);
  }
  // What is on its way already is left out.
  const std::uint32_t limit = ahead.empty() ? file.endPosition : ahead.front().first;
  const std::uint32_t last = std::min(limit - 1, position + kFramesPerFetch);
  if (const int error = StartFetch(holder, frame, last, transfer); error != kPsOk) return error;
  if (ahead.empty()) {
    nextRange = last + 1;
    rangeEnd = reader.GetPlace();
    rangesAhead = 1;
    FetchAhead(holder);
  }
  return Await(transfer, last);
}

int SearchFile::StartFetch(const Scanner& holder, const qv::kelvo::PSReadFrame& first,
                           std::uint32_t last, Transfer& transfer) {
  std::uint64_t end = first.fileOffset + first.size;
  if (file.sendList.empty()) {
    qv::kelvo::PSReadFrame lastFrame;
    lastFrame.index = last;
    if (const int error = reader.NextFrame(lastFrame, file.selectedMask); error != kPsOk) {
      return error;
    }
    end = lastFrame.fileOffset + lastFrame.size;
  }
  if (end <= first.fileOffset) return kPsBadArgument;
  transfer = holder->Download(file.path, file.path, static_cast<std::int64_t>(first.fileOffset),
                              static_cast<std::int64_t>(end - first.fileOffset));
  return transfer != nullptr ? kPsOk : kPsBadArgument;
}

void SearchFile::FetchAhead(const Scanner& holder) {
  const qv::kelvo::PSReader::Place here = reader.GetPlace();
  while (ahead.size() < rangesAhead && nextRange < file.endPosition) {
    const std::uint32_t last = std::min(file.endPosition - 1, nextRange + kFramesPerFetch);
    qv::kelvo::PSReadFrame first;
    first.index = nextRange;
    Transfer transfer;
    const bool isMissing = reader.SetPlace(rangeEnd) == kPsOk &&
                           reader.NextFrame(first, file.selectedMask) == kPsOk &&
                           reader.TestFrameStart(reader.GetPlace().cursor) != kPsOk;
    if (!isMissing || StartFetch(holder, first, last, transfer) != kPsOk) {
      nextRange = file.endPosition;  // a frame that is here ends the row, until one is missing
      break;
    }
    ahead.push_back({nextRange, last, holder, transfer});
    nextRange = last + 1;
    rangeEnd = reader.GetPlace();
  }
  (void)reader.SetPlace(here);
}

int SearchFile::AwaitFirstAhead() {
  const Range range = std::move(ahead.front());
  ahead.pop_front();
  rangesAhead = std::min(rangesAhead + 1, kMaxRangesAhead);
  FetchAhead(range.holder);
  return Await(range.transfer, range.last);
}

int SearchFile::Await(const Transfer& transfer, std::uint32_t last) {
  transfer->Wait();
  const bool complete = transfer->GetStatus() == qvArchiving::TransferStatus::COMPLETED;
  transfer->ReleaseHandle();
  if (complete) {
    fetchedEnd = last + 1;
  } else {
    ahead.clear();
  }
  return complete ? kPsOk : kPsBadArgument;
}

qv::kelvo::StreamID SearchFile::GetStreamId() const {
  return qv::kelvo::MakeStreamID(qv::kelvo::ContextOf(file.id), qv::kelvo::ProviderOf(file.id),
                                 qv::kelvo::DeviceOf(file.id),
                                 qv::kelvo::ToldInput(file.id, frame.encoder, frame.stream));
}

}  // namespace qvsvr::kelvo
