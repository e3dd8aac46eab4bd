#include "media/PSFile.h"

#include <algorithm>
#include <bit>
#include <optional>

#include "media/ByteOrder.h"
#include "media/StreamId.h"
#include "platform/Files.h"

namespace qv::kelvo {

namespace {

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kSmallPreallocation = 20'971'520;
constexpr std::uint64_t kLargeIndex = 10'485'760;
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

PSFile::PSFile(MediaFiles& mediaFiles, RunTables* closed)
    : files(mediaFiles), closedTables(closed) {}

PSFile::~PSFile() {
  Close();
}

int PSFile::Create(const std::string& newPath, const PsFileInfo& fileInfo,
                   std::span<const PsStreamDescriptor, kStreamCount> descriptors,
                   std::uint64_t preallocateBytes) {
  Close();
  path = newPath;
  if (const int result = OpenPair(preallocateBytes); result != kPsOk) {
    Abandon();
    return result;
  }
  writable = true;
  const int result = WriteFixedParts(fileInfo, descriptors);
  if (result != kPsOk && result != kPsBadArgument) Abandon();
  return result;
}

// Removes the files of a pair that couldn't be begun. One that couldn't be opened isn't ours.
void PSFile::Abandon() {
  const bool hasMedia = mediaFile != nullptr, hasIndex = indexFile != nullptr;
  const std::string abandoned = path;
  writable = false;
  Close();
  // What is in the way now may be in the way of this, too.
  if (hasMedia) (void)RemoveFile(abandoned);
  if (hasIndex) (void)RemoveFile(IndexPath(abandoned));
}

int PSFile::OpenPair(std::uint64_t preallocateBytes) {
  if (PathLength(IndexPath(path)) > kMaxPath ||
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
  if (WriteMedia({&head, 1}) != head.size()) return kPsWriteFailed;
  end.position += head.size();
  if (fileInfo.level != 0) return kPsBadArgument;

  std::array<std::byte, kProgramMapSize> programMap;
  EncodeProgramMap(fileInfo, descriptors, programMap);
  const ConstBytes map = programMap;
  if (WriteMedia({&map, 1}) != map.size()) return kPsWriteFailed;
  dataStart = end.position += map.size();
  return kPsOk;
}

bool PSFile::IsWriting() const {
  return writable;
}

bool PSFile::HasRoomFor(const FrameRun& run) const {
  return writable && !failed && dataStart != 0 &&
         // The index of the next record must not look like a missing link.
         tail.End() != kNoFrame && (run.end.position - dataStart) / kFrameAlignment <= 0xFFFFFFFFu;
}

int PSFile::WriteFrame(const PSFrame& frame) {
  std::size_t written = 0;
  return WriteFrames({&frame, 1}, written);
}

int PSFile::WriteFrames(std::span<const PSFrame> frames, std::size_t& written) {
  written = 0;
  while (written < frames.size()) {
    FrameRun run = BeginRun();
    int added = kPsOk;
    for (const PSFrame& frame : frames.subspan(written)) {
      if (!run.HasRoom(std::uint64_t{frame.payloadSize} + frame.size + sizeof(FrameRun::Head))) {
        break;
      }
      added = AddFrame(frame, run);
      if (added != kPsOk) break;
    }
    const int result = run.Count() != 0 ? WriteRun(run, written) : kPsOk;
    if (result != kPsOk) return result;
    if (added != kPsOk) return added;
  }
  return kPsOk;
}

FrameRun PSFile::BeginRun() {
  tail.BeginRun();
  return FrameRun(end, tables.header.frameCount);
}

int PSFile::AddFrame(const PSFrame& frame, FrameRun& run) {
  if (!HasRoomFor(run) || frame.stream >= kStreamCount) return kPsBadArgument;
  return frame.packet != nullptr && frame.size != 0 ? AddReadyPacket(frame, run)
                                                    : AddParts(frame, run);
}

int PSFile::AddParts(const PSFrame& frame, FrameRun& run) {
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

  FrameRun::Head& head = run.NextHead();
  const PesHeaderBytes pesBytes = std::span(head).first<kPesHeaderSize>();
  EncodePesHeader(pes, pesBytes);
  EncodeUserData({frame.userData, userDataSize},
                 std::span(head).subspan(kPesHeaderSize, encodedSize));
  if (const int result = AddIndexEntry(pesBytes, size, run); result != kPsOk) return result;
  run.Add(ConstBytes(head).first(kPesHeaderSize + encodedSize),
          ConstBytes(frame.payload, frame.payloadSize), ConstBytes(kZeros).first(pad));
  return kPsOk;
}

int PSFile::AddReadyPacket(const PSFrame& frame, FrameRun& run) {
  if (frame.size < kPesHeaderSize) return kPsBadArgument;
  const ConstBytes packet(frame.packet, frame.size);
  const PesHeaderBytes head = std::span(run.NextHead()).first<kPesHeaderSize>();
  std::ranges::copy(packet.first(kPesHeaderSize), head.begin());
  const PsiStreamRecord& stream = tables.streams[frame.stream];
  PatchStream(head, streamIds[frame.stream], frame.flags,
              StreamInfo(stream.encoder, stream.channel));
  const std::uint32_t pad = PadCount(DecodePesHeader(head).padInfo);
  if (const int result = AddIndexEntry(head, std::uint64_t{frame.size} + pad, run);
      result != kPsOk) {
    return result;
  }
  run.Add(head, packet.subspan(kPesHeaderSize), ConstBytes(kZeros).first(pad));
  return kPsOk;
}

int PSFile::WritePacket(MutableBytes packet) {
  FrameRun run = BeginRun();
  if (!HasRoomFor(run) || packet.data() == nullptr || packet.size() < kPesHeaderSize) {
    return kPsBadArgument;
  }
  if (const int result = AddIndexEntry(packet.first<kPesHeaderSize>(), packet.size(), run);
      result != kPsOk) {
    return result;
  }
  run.Add(packet, {}, {});
  std::size_t written = 0;
  return WriteRun(run, written);
}

// Records the frame that follows those of the run, and fills in the previous-size field of its
// header.
int PSFile::AddIndexEntry(PesHeaderBytes pesHeader, std::uint64_t size, FrameRun& run) {
  if (!IsFrameSize(size)) return kPsBadArgument;
  const PesHeader pes = DecodePesHeader(pesHeader);

  PsiFrameRecord record;
  record.stream = StreamOfId(pes.streamId);
  record.frameInfo = pes.frameInfo;
  record.streamInfo = pes.streamInfo;
  record.SetSize(static_cast<std::uint32_t>(size));
  record.date = pes.date;
  record.ms = static_cast<std::uint32_t>(pes.dts / kTicksPerMs);
  record.offsetUnits = static_cast<std::uint32_t>((run.end.position - dataStart) / kFrameAlignment);
  const bool dependent = (pes.frameInfo & kFrameTypeMask) >= kFrameP;
  std::uint16_t& groupFrame = run.end.groupFrame[record.stream];
  groupFrame = dependent ? static_cast<std::uint16_t>(groupFrame + 1) : std::uint16_t{0};
  record.groupFrame = groupFrame;
  record.next = kNoFrame;
  AddRecord(record, run);

  PatchPreviousSize(pesHeader, run.end.previousSize);
  run.end.previousSize = static_cast<std::uint32_t>(size);
  run.end.position += size;
  return kPsOk;
}

// Appends the record and links it with the one before of its stream.
void PSFile::AddRecord(const PsiFrameRecord& record, FrameRun& run) {
  const std::uint32_t index = tail.End();
  const std::uint32_t bit = 1u << record.stream;
  std::uint32_t& last = run.end.last[record.stream];
  PsiFrameRecord linked = record;
  const bool isFirst = (run.streams & bit) == 0 && tables.streams[record.stream].frameCount == 0;
  linked.prev = isFirst ? kNoFrame : last;
  if (!isFirst && tail.Holds(last)) {
    tail.SetNext(last, index);
    run.from = std::min(run.from, last);
  } else if (!isFirst) {
    run.distant |= bit;
    run.linkTo[record.stream] = index;
  }
  tail.Append(linked);
  run.streams |= bit;
  last = index;
}

// Puts the run on disk, its records first, and adds to `written` the frames that arrived whole.
int PSFile::WriteRun(const FrameRun& run, std::size_t& written) {
  failed = true;  // until all is well
  std::uint64_t left = WriteRecords(run) ? WriteMedia(run.Parts()) : 0;
  for (std::uint32_t index = run.first; index != tail.End(); ++index) {
    const PsiFrameRecord record = tail.Get(index);
    if (record.Size() > left) {
      TakeBack(run);
      return kPsWriteFailed;
    }
    left -= record.Size();
    lastRecords[record.stream] = record;
    tables.Add(record);
    end.position += record.Size();
    ++written;
  }
  end = run.end;
  failed = false;
  return kPsOk;
}

// Writes the records of the run and the links that lead to them: all at once, but for links in
// records long past.
bool PSFile::WriteRecords(const FrameRun& run) {
  for (std::uint32_t rest = run.distant; rest != 0; rest &= rest - 1) {
    const auto stream = static_cast<unsigned>(std::countr_zero(rest));
    if (!WriteLink(stream, run.linkTo[stream])) return false;
  }
  return WriteIndexAt(FrameRecordOffset(run.from), tail.From(run.from));
}

// Ends the file behind the frames that arrived. A failure leaves links and records that lead
// nowhere; readers stop at the frame count.
void PSFile::TakeBack(const FrameRun& run) {
  tail.CutTo(tables.header.frameCount);
  for (std::uint32_t rest = run.streams; rest != 0; rest &= rest - 1) {
    const auto stream = static_cast<unsigned>(std::countr_zero(rest));
    if (tables.streams[stream].frameCount != 0) (void)WriteLink(stream, kNoFrame);
  }
}

// Writes the last record of a stream with that link.
bool PSFile::WriteLink(unsigned stream, std::uint32_t next) {
  PsiFrameRecord record = lastRecords[stream];
  record.next = next;
  std::array<std::byte, kPsiFrameRecordSize> bytes;
  Encode(record, bytes);
  return WriteIndexAt(FrameRecordOffset(tables.streams[stream].lastFrame), bytes);
}

// Writes at the file's end, which stays where it is, and returns how many bytes arrived.
std::uint64_t PSFile::WriteMedia(std::span<const ConstBytes> parts) {
  const IoResult result = mediaFile->WriteAt(end.position, parts);
  return result.error == 0 ? result.bytes : 0;
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
  std::uint64_t offset = FrameRecordOffset(tables.header.frameCount);
  std::array<std::byte, kRunsPerWrite * kPsiRunRecordSize> bytes;
  for (std::size_t first = 0; first < runs.size(); first += kRunsPerWrite) {
    const std::size_t count = std::min(kRunsPerWrite, runs.size() - first);
    for (std::size_t i = 0; i < count; ++i) {
      Encode(runs[first + i],
             std::span(bytes).subspan(i * kPsiRunRecordSize).first<kPsiRunRecordSize>());
    }
    const std::size_t size = count * kPsiRunRecordSize;
    if (!WriteIndexAt(offset, ConstBytes(bytes).first(size))) break;
    tables.header.runCount += static_cast<std::uint32_t>(count);
    offset += size;
  }
  return offset;
}

// Whether the index tells all there is.
bool PSFile::FinishIndex() {
  tables.runs.CloseAll();
  const std::uint64_t runsEnd = WriteRuns();
  // Best effort from here on: what fails leaves an index that a reader recovers from.
  if (preallocated || failed) (void)indexFile->SetSize(indexBase + runsEnd);
  if (WriteIndexHead()) return tables.header.runCount == tables.runs.Closed().size();
  // Without the head a reader counts the records, and must not take the runs behind them for more.
  (void)indexFile->SetSize(indexBase + FrameRecordOffset(tables.header.frameCount));
  return false;
}

void PSFile::TellClosed() {
  auto table = std::make_shared<RunTable>();
  table->header = tables.header;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    const PsiStreamRecord& record = tables.streams[stream];
    if (record.frameCount != 0) {
      table->streams.push_back({static_cast<std::uint8_t>(stream), record});
    }
  }
  table->runs.assign(tables.runs.Closed().begin(), tables.runs.Closed().end());
  table->fileInput = fileInput;
  closedTables->Put(path, files.StampOf(IndexPath(path)), std::move(table));
}

void PSFile::Close() {
  const bool finished = indexFile != nullptr && writable && FinishIndex();
  indexFile.reset();
  if (mediaFile != nullptr && (preallocated || failed)) (void)mediaFile->SetSize(end.position);
  mediaFile.reset();
  if (finished && closedTables != nullptr && tables.header.frameCount != 0) TellClosed();
  Reset();
}

void PSFile::Reset() {
  path.clear();
  dataStart = indexBase = 0;
  writable = failed = preallocated = false;
  tables.header = {};
  tables.streams = {};
  tables.runs.Clear();
  end = {};
  lastRecords = {};
  tail.Reset();
  streamIds = {};
  fileInput = 0;
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
