#include "media/MediaHead.h"

#include <algorithm>

#include "media/ByteOrder.h"
#include "media/IndexImage.h"
#include "media/StreamId.h"

namespace qv::kelvo {
namespace {

constexpr std::size_t kMapHeadSize = 6;
constexpr std::size_t kStreamIdAt = 3;  // in the header of a frame

}  // namespace

int MediaHead::Read(MediaFile& media) {
  const IoResult result = media.ReadAt(0, bytes);
  if (result.error != 0) return result.error;
  const std::span head(bytes);
  lost = result.bytes == kSize &&
         std::ranges::all_of(bytes, [](std::byte b) { return b == std::byte{0}; });
  dataStart = 0;
  if (lost) dataStart = kSize;
  if (IsPackHeader(head.first<kPackHeaderSize>())) {
    dataStart = kPackHeaderSize + kMapHeadSize +
                ProgramMapLength(head.subspan<kPackHeaderSize>().first<kMapHeadSize>());
  }
  PsFileInfo info;
  known = lost || (dataStart != 0 && DecodeFileInfo(head.subspan<kPackHeaderSize>(), info));
  return 0;
}

bool MediaHead::IsWideInput() const {
  PsFileInfo info;
  return DecodeFileInfo(std::span(bytes).subspan(kPackHeaderSize), info) &&
         qv::kelvo::IsWideInput(info.fileInput[0]);
}

std::uint32_t MediaHead::Named() const {
  const ConstBytes map = ConstBytes(bytes).subspan(kPackHeaderSize);
  std::array<PsStreamDescriptor, kStreamCount> entries;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    if (!DecodeStreamDescriptor(map, stream, entries[stream])) return NamedStreams({});
  }
  return NamedStreams(entries);
}

void MediaHead::Restore(MediaFiles& files, const std::string& sibling,
                        const std::vector<PsiFrameRecord>& frames, MediaFile* media,
                        std::uint8_t fileInput) {
  const StreamIds ids = IdsOf(frames, *media);
  if (sibling.empty() || !Borrow(files, sibling, ids)) Invent(ids, fileInput);
}

MediaHead::StreamIds MediaHead::IdsOf(const std::vector<PsiFrameRecord>& frames,
                                      MediaFile& media) const {
  StreamIds ids{};
  for (const PsiFrameRecord& frame : frames) {
    if (ids[frame.stream] != 0) continue;
    std::array<std::byte, kPesHeaderSize> header{};
    (void)media.ReadAt(dataStart + frame.Offset(), header);
    ids[frame.stream] = GetU8(header, kStreamIdAt);
  }
  return ids;
}

bool MediaHead::Borrow(MediaFiles& files, const std::string& sibling, const StreamIds& ids) {
  std::unique_ptr<MediaFile> file;
  std::array<std::byte, kSize> head{};
  if (files.Open(sibling, OpenMode::Read, file) != 0 || file->ReadAt(0, head).bytes != kSize) {
    return false;
  }
  const ConstBytes map = ConstBytes(head).subspan(kPackHeaderSize);
  PsFileInfo info;
  if (!std::ranges::equal(ConstBytes(head).first(kPackHeaderSize), kPackHeader) ||
      ProgramMapLength(map.first<kMapHeadSize>()) != kProgramMapSize - kMapHeadSize ||
      !DecodeFileInfo(map, info)) {
    return false;
  }
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    PsStreamDescriptor descriptor;
    if (ids[stream] != 0 &&
        (!DecodeStreamDescriptor(map, stream, descriptor) || descriptor.streamId != ids[stream])) {
      return false;
    }
  }
  bytes = head;
  return true;
}

// Codecs, pictures and sound stand in the head only: they are told as unknown, by 0.
void MediaHead::Invent(const StreamIds& ids, std::uint8_t fileInput) {
  PsFileInfo info;
  info.fileInput[0] = fileInput;
  std::array<PsStreamDescriptor, kStreamCount> descriptors;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    const bool video = stream < kVideoStreams;
    const unsigned usual = video ? 0xE0 + stream : 0xC0 + stream - kVideoStreams;
    descriptors[stream].streamId =
        ids[stream] != 0 ? ids[stream] : static_cast<std::uint8_t>(usual);
    descriptors[stream].streamType = video ? kVideoTypes : kAudioTypes;
  }
  std::ranges::copy(kPackHeader, bytes.begin());
  EncodeProgramMap(info, descriptors, std::span(bytes).subspan<kPackHeaderSize>());
}

int MediaHead::Write(MediaFiles& files, const std::string& path) const {
  std::unique_ptr<MediaFile> file;
  if (const int error = files.Open(path, OpenMode::CreateOrKeep, file); error != 0) return error;
  const ConstBytes part = bytes;
  const IoResult result = file->WriteAt(0, {&part, 1});
  return result.error == 0 && result.bytes != kSize ? kRanShort : result.error;
}

}  // namespace qv::kelvo
