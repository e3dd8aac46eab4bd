#include "media/PSFile.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <optional>

#include "media/ByteOrder.h"
#include "media/StreamId.h"

namespace qv::kelvo {

namespace {

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kSmallPreallocation = 20'971'520;
constexpr std::uint64_t kLargeIndex = 10'485'760;
constexpr std::size_t kMaxIndexPath = 260;
constexpr std::size_t kRunsPerWrite = 256;

constexpr std::array<std::byte, kFrameAlignment> kZeros{};

// Sizes of a pair that takes `bytes` in advance.
struct Preallocation {
  std::uint64_t media = 0;
  std::uint64_t index = 0;
};
Preallocation Divide(std::uint64_t bytes) {
  bytes -= bytes % kPage;
  if (bytes < 2 * kPage) return {kPage, kPage};
  const std::uint64_t index = bytes < kSmallPreallocation ? kPage : kLargeIndex;
  return {bytes - index, index};
}

// The millisecond of the day, or nothing when no time stamp has room for it.
std::optional<std::uint32_t> MsOfDay(const PSFrame& frame) {
  const std::uint64_t ms =
      ((std::uint64_t{frame.hour} * 60 + frame.minute) * 60 + frame.second) * 1000 +
      frame.millisecond;
  if ((ms + frame.presentationOffset) > kMaxTicks / kTicksPerMs) return std::nullopt;
  return static_cast<std::uint32_t>(ms);
}

}  // namespace

std::string IndexPath(const std::string& mediaPath) {
  return mediaPath + 'i';
}

void PSFrame::SetTime(UtcMs time) {
  const CalendarTime utc = IsPackable(time) ? ToUtc(time) : CalendarTime{};
  year = static_cast<std::uint16_t>(utc.year);
  month = static_cast<std::uint16_t>(utc.month);
  day = static_cast<std::uint16_t>(utc.day);
  hour = static_cast<std::uint32_t>(utc.hour);
  minute = static_cast<std::uint32_t>(utc.minute);
  second = static_cast<std::uint32_t>(utc.second);
  millisecond = static_cast<std::uint32_t>(utc.millisecond);
}

PSFile::PSFile(MediaFiles& mediaFiles) : files(mediaFiles) {}

PSFile::~PSFile() {
  Close();
}

int PSFile::Create(const std::string& path, const PsFileInfo& fileInfo,
                   std::span<const PsStreamDescriptor, kStreamCount> descriptors,
                   std::uint64_t preallocateBytes) {
  Close();
  if (const int result = OpenPair(path, preallocateBytes); result != kPsOk) {
    Abandon(path);
    return result;
  }
  writable = true;
  const int result = WriteFixedParts(fileInfo, descriptors);
  if (result != kPsOk && result != kPsBadArgument) Abandon(path);
  return result;
}

// Removes the files of a pair that couldn't be begun. One that couldn't be opened isn't ours.
void PSFile::Abandon(const std::string& path) {
  const bool hasMedia = mediaFile != nullptr, hasIndex = indexFile != nullptr;
  writable = false;
  Close();
  boost::system::error_code ignored;  // what is in the way now may be in the way of this, too
  if (hasMedia) boost::filesystem::remove(path, ignored);
  if (hasIndex) boost::filesystem::remove(IndexPath(path), ignored);
}

int PSFile::OpenPair(const std::string& path, std::uint64_t preallocateBytes) {
  if (IndexPath(path).size() > kMaxIndexPath ||
      files.Open(path, OpenMode::CreateOrTruncate, mediaFile) != 0 ||
      files.Open(IndexPath(path), OpenMode::CreateOrTruncate, indexFile) != 0) {
    return kPsOpenFailed;
  }
  if (preallocateBytes == 0) return kPsOk;
  preallocated = true;
  const Preallocation sizes = Divide(preallocateBytes);
  const bool sized = mediaFile->SetSize(sizes.media) == 0 && indexFile->SetSize(sizes.index) == 0;
  return sized ? kPsOk : kPsOpenFailed;
}

int PSFile::WriteFixedParts(const PsFileInfo& fileInfo,
                            std::span<const PsStreamDescriptor, kStreamCount> descriptors) {
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    tables.streams[stream].channel = descriptors[stream].channel;
    tables.streams[stream].encoder = descriptors[stream].encoder;
    streamIds[stream] = descriptors[stream].streamId;
  }
  fileInput = fileInfo.fileInput[0];
  if (!WriteIndexHead()) return kPsWriteFailed;

  const ConstBytes head = kPackHeader;
  if (WriteMedia({&head, 1}) != kPsOk) return kPsWriteFailed;
  if (fileInfo.level != 0) return kPsBadArgument;

  std::array<std::byte, kProgramMapSize> programMap;
  EncodeProgramMap(fileInfo, descriptors, programMap);
  const ConstBytes map = programMap;
  if (WriteMedia({&map, 1}) != kPsOk) return kPsWriteFailed;
  dataStart = writePos;
  return kPsOk;
}

bool PSFile::IsWriting() const {
  return writable;
}

bool PSFile::ReadyForFrame() const {
  return writable && !failed && dataStart != 0 &&
         // The index of the next record must not look like a missing link.
         tables.header.frameCount != kNoFrame &&
         (writePos - dataStart) / kFrameAlignment <= 0xFFFFFFFFu;
}

int PSFile::WriteFrame(const PSFrame& frame) {
  if (!ReadyForFrame() || frame.stream >= kStreamCount) return kPsBadArgument;
  return frame.packet != nullptr && frame.size != 0 ? WriteReadyPacket(frame) : WriteParts(frame);
}

int PSFile::WriteParts(const PSFrame& frame) {
  const std::optional<PackedDate> date = PackDate(frame.year, frame.month, frame.day);
  const std::optional<std::uint32_t> ms = MsOfDay(frame);
  if (!date || !ms || frame.userDataSize > kMaxUserData ||
      (frame.userData == nullptr && frame.userDataSize != 0) ||
      (frame.payload == nullptr && frame.payloadSize != 0)) {
    return kPsBadArgument;
  }

  const auto userDataSize = static_cast<std::size_t>(frame.userDataSize);
  const std::size_t encodedSize = EncodedUserDataSize(userDataSize);
  const std::uint32_t pad = PaddingFor(std::uint64_t{frame.payloadSize} + encodedSize);
  const std::uint64_t size = kPesHeaderSize + encodedSize + std::uint64_t{frame.payloadSize} + pad;
  if (!IsFrameSize(size)) return kPsBadArgument;

  PesHeader pes;
  pes.streamId = streamIds[frame.stream];
  pes.userDataBytes = static_cast<std::uint8_t>(encodedSize);
  pes.dts = *ms * kTicksPerMs;
  pes.pts = (std::uint64_t{*ms} + frame.presentationOffset) * kTicksPerMs;
  pes.size = static_cast<std::uint32_t>(size);
  pes.frameInfo = FrameInfo(frame.flags, frame.frameType);
  pes.streamInfo = StreamInfo(IsWideInput(fileInput) ? frame.encoder : fileInput, frame.channel);
  pes.padInfo = static_cast<std::uint8_t>(0xC0u | pad);
  pes.date = *date;

  std::array<std::byte, kPesHeaderSize + kMaxEncodedUserData> head;
  const PesHeaderBytes pesBytes = std::span(head).first<kPesHeaderSize>();
  EncodePesHeader(pes, pesBytes);
  EncodeUserData({frame.userData, userDataSize},
                 std::span(head).subspan(kPesHeaderSize, encodedSize));
  if (const int result = AddIndexEntry(pesBytes, size); result != kPsOk) return result;

  const std::array<ConstBytes, 3> parts = {ConstBytes(head).first(kPesHeaderSize + encodedSize),
                                           ConstBytes(frame.payload, frame.payloadSize),
                                           ConstBytes(kZeros).first(pad)};
  return WriteMedia(parts);
}

int PSFile::WriteReadyPacket(const PSFrame& frame) {
  if (frame.size < kPesHeaderSize) return kPsBadArgument;
  std::array<std::byte, kPesHeaderSize> head;
  const ConstBytes packet(frame.packet, frame.size);
  std::ranges::copy(packet.first(kPesHeaderSize), head.begin());
  const PsiStreamRecord& stream = tables.streams[frame.stream];
  PatchStream(head, streamIds[frame.stream], frame.flags,
              StreamInfo(stream.encoder, stream.channel));
  const std::uint32_t pad = PadCount(DecodePesHeader(head).padInfo);
  if (const int result = AddIndexEntry(head, std::uint64_t{frame.size} + pad); result != kPsOk) {
    return result;
  }
  const std::array<ConstBytes, 3> parts = {ConstBytes(head), packet.subspan(kPesHeaderSize),
                                           ConstBytes(kZeros).first(pad)};
  return WriteMedia(parts);
}

int PSFile::WritePacket(MutableBytes packet) {
  if (!ReadyForFrame() || packet.data() == nullptr || packet.size() < kPesHeaderSize) {
    return kPsBadArgument;
  }
  if (const int result = AddIndexEntry(packet.first<kPesHeaderSize>(), packet.size());
      result != kPsOk) {
    return result;
  }
  const ConstBytes bytes = packet;
  return WriteMedia({&bytes, 1});
}

// Records the frame that starts at `writePos`, and fills in the previous-size field of its header.
int PSFile::AddIndexEntry(PesHeaderBytes pesHeader, std::uint64_t size) {
  if (!IsFrameSize(size)) return kPsBadArgument;
  const PesHeader pes = DecodePesHeader(pesHeader);

  PsiFrameRecord record;
  record.stream = StreamOfId(pes.streamId);
  record.frameInfo = pes.frameInfo;
  record.streamInfo = pes.streamInfo;
  record.SetSize(static_cast<std::uint32_t>(size));
  record.date = pes.date;
  record.ms = static_cast<std::uint32_t>(pes.dts / kTicksPerMs);
  record.offsetUnits = static_cast<std::uint32_t>((writePos - dataStart) / kFrameAlignment);
  const PsiStreamRecord& stream = tables.streams[record.stream];
  record.prev = stream.frameCount == 0 ? kNoFrame : stream.lastFrame;
  record.next = kNoFrame;
  const bool dependent = (pes.frameInfo & kFrameTypeMask) >= kFrameP;
  record.groupFrame =
      dependent ? static_cast<std::uint16_t>(groupFrame[record.stream] + 1) : std::uint16_t{0};

  if (const int result = WriteRecord(record); result != kPsOk) return result;
  PatchPreviousSize(pesHeader, previousSize);
  groupFrame[record.stream] = record.groupFrame;
  cursorRecords[record.stream] = record;
  tables.Add(record);
  previousSize = static_cast<std::uint32_t>(size);
  return kPsOk;
}

// Links the stream's last record to the new one and writes the new one: at once where the last one
// is recent, otherwise the link first.
int PSFile::WriteRecord(const PsiFrameRecord& record) {
  const std::uint32_t index = tables.header.frameCount;
  const bool linked = record.prev != kNoFrame;
  tail.Append(record);
  const bool recent = linked && tail.Holds(record.prev);
  if (recent) tail.SetNext(record.prev, index);
  const std::uint32_t from = recent ? record.prev : index;
  const bool written = (recent || !linked || WriteLink(record.stream, index)) &&
                       WriteIndexAt(FrameRecordOffset(from), tail.From(from));
  if (written) return kPsOk;
  failed = true;
  tail.RemoveLast();
  // Takes back a link to a record that wasn't written. A failure leaves the link; readers stop at
  // the frame count.
  if (linked) (void)WriteLink(record.stream, kNoFrame);
  return kPsWriteFailed;
}

// Writes the last record of a stream with that link.
bool PSFile::WriteLink(std::uint8_t stream, std::uint32_t next) {
  PsiFrameRecord record = cursorRecords[stream];
  record.next = next;
  std::array<std::byte, kPsiFrameRecordSize> bytes;
  Encode(record, bytes);
  return WriteIndexAt(FrameRecordOffset(tables.streams[stream].lastFrame), bytes);
}

int PSFile::WriteMedia(std::span<const ConstBytes> parts) {
  std::size_t size = 0;
  for (const ConstBytes& part : parts) size += part.size();
  const IoResult result = mediaFile->WriteAt(writePos, parts);
  if (result.error != 0 || result.bytes != size) {
    failed = true;
    return kPsWriteFailed;
  }
  writePos += size;
  return kPsOk;
}

bool PSFile::WriteIndexAt(std::uint64_t offset, ConstBytes bytes) {
  const IoResult result = indexFile->WriteAt(indexBase + offset, {&bytes, 1});
  return result.error == 0 && result.bytes == bytes.size();
}

bool PSFile::WriteIndexHead() {
  std::array<std::byte, kPsiHeadSize> bytes;
  Encode(tables.header, std::span(bytes).first<kPsiHeaderSize>());
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    const std::size_t offset = kPsiHeaderSize + stream * kPsiStreamRecordSize;
    Encode(tables.streams[stream], std::span(bytes).subspan(offset).first<kPsiStreamRecordSize>());
  }
  return WriteIndexAt(0, bytes);
}

// Writes the runs behind the frame records, counts those that arrived and returns where they end.
std::uint64_t PSFile::WriteRuns() {
  const std::span<const PsiRunRecord> runs = tables.runs.Closed();
  std::uint64_t end = FrameRecordOffset(tables.header.frameCount);
  std::array<std::byte, kRunsPerWrite * kPsiRunRecordSize> bytes;
  for (std::size_t first = 0; first < runs.size(); first += kRunsPerWrite) {
    const std::size_t count = std::min(kRunsPerWrite, runs.size() - first);
    for (std::size_t i = 0; i < count; ++i) {
      Encode(runs[first + i],
             std::span(bytes).subspan(i * kPsiRunRecordSize).first<kPsiRunRecordSize>());
    }
    const std::size_t size = count * kPsiRunRecordSize;
    if (!WriteIndexAt(end, ConstBytes(bytes).first(size))) break;
    tables.header.runCount += static_cast<std::uint32_t>(count);
    end += size;
  }
  return end;
}

void PSFile::FinishIndex() {
  tables.runs.CloseAll();
  const std::uint64_t end = WriteRuns();
  // Best effort from here on: what fails leaves an index that a reader recovers from.
  if (preallocated) (void)indexFile->SetSize(indexBase + end);
  if (WriteIndexHead()) return;
  // Without the head a reader counts the records, and must not take the runs behind them for more.
  (void)indexFile->SetSize(indexBase + FrameRecordOffset(tables.header.frameCount));
}

void PSFile::Close() {
  if (indexFile != nullptr && writable) FinishIndex();
  indexFile.reset();
  if (mediaFile != nullptr && preallocated) (void)mediaFile->SetSize(writePos);
  mediaFile.reset();
  Reset();
}

void PSFile::Reset() {
  dataStart = indexBase = writePos = 0;
  writable = failed = preallocated = false;
  tables.header = {};
  tables.streams = {};
  tables.runs.Clear();
  cursorRecords = {};
  tail.Reset();
  groupFrame = {};
  streamIds = {};
  fileInput = 0;
  previousSize = kNoPreviousFrame;
}

std::uint32_t PSFile::GetFrameCount(std::uint16_t stream) const {
  if (stream == kWholeFile) return tables.header.frameCount;
  return stream < kStreamCount ? tables.streams[stream].frameCount : 0;
}

std::size_t PSFile::ClipCount() const {
  return tables.runs.Closed().size() + tables.runs.OpenCount();
}

std::uint64_t PSFile::GetDiskSize() {
  std::uint64_t total = 0;
  for (const auto& file : {mediaFile.get(), indexFile.get()}) {
    std::uint64_t size = 0;
    if (file != nullptr && file->Size(size) == 0) total += size;
  }
  if (writable) total += tables.runs.Closed().size() * kPsiRunRecordSize;
  return total;
}

int PSFile::SetMediaAccessMode(unsigned) const {
  return 0;
}

int PSFile::SetIndexAccessMode(unsigned) const {
  return 0;
}

}  // namespace qv::kelvo
