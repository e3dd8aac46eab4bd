#include "search/SearchFile.h"

#include <algorithm>

#include "archiving/IResult.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kPsBadArgument;
using qv::kelvo::kPsOk;

constexpr std::size_t kPacketRoom = 4'194'303;
constexpr std::uint32_t kFramesPerFetch = 150;

}  // namespace

SearchFile::SearchFile(SearchTargetFileSystem& fileSystem, PlaybackFile&& playbackFile)
    : target(fileSystem),
      file(std::move(playbackFile)),
      reader(fileSystem.MediaFiles()),
      packetBuffer(std::make_unique_for_overwrite<std::byte[]>(kPacketRoom)) {}

int SearchFile::Open() {
  if (const int error = reader.Open(file.path); error != kPsOk) return error;
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
    int error = ReadFrame();
    if (error != kPsOk || !qv::kelvo::HasStartCode({packetBuffer.get(), 3})) {
      // The frame isn't on this disk, or is damaged: then it is sent as it stands.
      bool fetched = false;
      if (const int failed = FetchFromArchive(fetched); failed != kPsOk) return failed;
      if (fetched || error == kPsOk) error = ReadFrame();
    }
    if (error != kPsOk) return error;
    const std::uint32_t place = position++;
    if (IsPreRoll(place)) continue;
    frameTime = frame.Time();
    return kPsOk;
  }
  return kPsBadArgument;
}

bool SearchFile::IsPreRoll(std::uint32_t place) {
  std::uint32_t& start = streamStart[frame.stream];
  if (start == qv::kelvo::kAtFirstKey && frame.frameType <= qv::kelvo::kFrameI) start = place;
  return place < start;
}

// Brings down the frame at `position` and, where frames follow each other, some more.
int SearchFile::FetchFromArchive(bool& fetched) {
  fetched = false;
  qv::kelvo::TargetList targets;
  target.GetTargets(targets, qv::kelvo::kVolumesLocal | qv::kelvo::kVolumesArchive, nullptr);
  const auto holder = std::ranges::find_if(
      targets, [this](const auto& archive) { return archive->IsWithinMount(file.path); });
  if (holder == targets.end()) return kPsOk;
  if (frame.size == 0) return kPsBadArgument;  // not even its place is known

  const std::uint64_t offset = frame.fileOffset;
  std::uint64_t end = offset + frame.size;
  if (file.sendList.empty()) {
    qv::kelvo::PSReadFrame last;
    last.index = std::min(file.endPosition - 1, position + kFramesPerFetch);
    if (const int error = reader.NextFrame(last, file.selectedMask); error != kPsOk) return error;
    end = last.fileOffset + last.size;
  }
  if (end <= offset) return kPsBadArgument;
  const auto transfer = (*holder)->Download(file.path, file.path, static_cast<std::int64_t>(offset),
                                            static_cast<std::int64_t>(end - offset));
  if (transfer == nullptr) return kPsBadArgument;
  transfer->Wait();
  const auto status = transfer->GetStatus();
  transfer->ReleaseHandle();
  fetched = status == qvArchiving::TransferStatus::COMPLETED;
  return fetched ? kPsOk : kPsBadArgument;
}

qv::kelvo::StreamID SearchFile::GetStreamId() const {
  constexpr std::uint32_t kWideInput = 0x80;
  const std::uint32_t input = qv::kelvo::InputOf(file.id);
  const std::uint32_t low = (input & kWideInput) != 0
                                ? (frame.encoder & 3u) << 5 | (frame.stream & 31u)
                                : frame.stream + input;
  return qv::kelvo::MakeStreamID(qv::kelvo::ContextOf(file.id), qv::kelvo::ProviderOf(file.id),
                                 qv::kelvo::DeviceOf(file.id), low);
}

}  // namespace qvsvr::kelvo
