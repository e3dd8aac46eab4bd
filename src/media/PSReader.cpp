#include "media/PSReader.h"

#include <algorithm>
#include <numeric>

#include "platform/Files.h"

namespace qv::kelvo {
namespace {

constexpr std::size_t kMapHeadSize = 6;
constexpr std::size_t kMaxMapLength = kProgramMapSize - kMapHeadSize;
// The head and the first record: a listing asks for no more.
constexpr std::size_t kFirstIndexRead = kPsiHeadSize + kPsiFrameRecordSize;
constexpr std::size_t kRunsAtATime = 256;

// Whether `buffer` was filled from `offset`.
bool ReadAll(MediaFile& file, std::uint64_t offset, MutableBytes buffer) {
  const IoResult result = file.ReadAt(offset, buffer);
  return result.error == 0 && result.bytes == buffer.size();
}

std::uint32_t MaskOf(std::span<const std::uint16_t> streams) {
  std::uint32_t mask = 0;
  for (const std::uint16_t stream : streams) {
    if (stream < kStreamCount) mask |= 1u << stream;
  }
  return mask;
}

bool Has(std::uint32_t mask, unsigned stream) {
  return (mask >> stream & 1u) != 0;
}

}  // namespace

PSReader::PSReader(MediaFiles& mediaFiles) : files(mediaFiles) {}

int PSReader::Open(const std::string& path) {
  return OpenAt(path, 0, 0);
}

int PSReader::OpenAt(const std::string& path, std::uint64_t mediaBase, std::uint64_t newIndexBase) {
  Close();
  refusal = 0;
  damaged = false;
  if (const int error = files.OpenListed(path, mediaFile); error != 0) {
    NoteRefusal(error);
    return kPsOpenFailed;
  }
  indexBase = newIndexBase;
  indexInMedia = newIndexBase != 0;
  // Without an index the media file is scanned instead.
  if (!indexInMedia) NoteRefusal(files.Open(IndexPath(path), OpenMode::Read, indexFile));

  int result = HasIndex() ? LoadIndex() : kPsOk;
  if (result == kPsOk) result = LoadMedia(mediaBase);
  if (result == kPsOk && !HasIndex()) ScanMedia();
  if (result == kPsOk) result = Rewind();
  damaged |= (result != kPsOk || !HasIndex() || programMap.empty()) && refusal == 0;
  if (result != kPsOk) Close();
  return result;
}

void PSReader::Close() {
  if (mediaFile == nullptr && indexFile == nullptr) return;
  mediaFile.reset();
  indexFile.reset();
  indexInMedia = recovered = false;
  indexBase = dataStart = 0;
  ahead = {};
  programMap.clear();
  tables.header = {};
  tables.streams = {};
  tables.runs.Clear();
  window.Reset(nullptr, 0);
  runBytes.clear();
  firstRun = 0;
  memoryFrames.clear();
  for (auto& frames : memoryStreamFrames) frames.clear();
}

void PSReader::NoteRefusal(int error) {
  if (error != 0 && !IsMissing(error)) refusal = error;
}

int PSReader::LoadIndex() {
  MediaFile& file = IndexSource();
  std::array<std::byte, kFirstIndexRead> buffer;
  const IoResult result = file.ReadAt(indexBase, buffer);
  NoteRefusal(result.error);
  const ConstBytes bytes = ConstBytes(buffer).first(result.bytes);
  if (bytes.size() < kPsiHeaderSize) return kPsReadFailed;
  tables.header = DecodeHeader(bytes.first<kPsiHeaderSize>());
  if (!IsValid(tables.header) || tables.header.streamCount > kStreamCount) return kPsBadArgument;
  if (bytes.size() < kPsiHeaderSize + tables.header.streamCount * kPsiStreamRecordSize) {
    return kPsReadFailed;
  }
  DecodeStreams(bytes.subspan(kPsiHeaderSize),
                std::span(tables.streams).first(tables.header.streamCount));

  window.Reset(&file, indexBase);
  if (bytes.size() > kPsiHeadSize) window.Preload(bytes.subspan(kPsiHeadSize));
  // Records that come meanwhile are no matter.
  const FileStamp opened = file.OpenedAs();
  std::uint64_t size = opened.size;
  if (const int error = opened.IsKnown() ? 0 : file.Size(size); error != 0) {
    NoteRefusal(error);
    return kPsReadFailed;
  }
  const std::uint64_t room = size - std::min(size, indexBase + kPsiHeadSize);
  bool agrees = tables.header.frameCount != 0 && TablesAgree(room);
  if (agrees) {
    if (const int error = LoadEnd(agrees); error != kPsOk) return error;
  }
  if (!agrees) Recover();
  NoteRefusal(window.Error());
  return kPsOk;
}

// Reads the last frame record and the runs behind it. `isThere` tells whether that record was ever
// written: a file with a hole at its end has room for any count.
int PSReader::LoadEnd(bool& isThere) {
  const std::uint32_t last = tables.header.frameCount - 1;
  const std::size_t runs = HasRunTable() ? tables.header.runCount : 0;
  runBytes.resize(kPsiFrameRecordSize + std::min(runs, kRunsAtATime) * kPsiRunRecordSize);
  const IoResult result = IndexSource().ReadAt(indexBase + FrameRecordOffset(last), runBytes);
  NoteRefusal(result.error);
  if (result.bytes < kPsiFrameRecordSize) return kPsReadFailed;
  const PsiFrameRecord record = DecodeFrame(ConstBytes(runBytes).first<kPsiFrameRecordSize>());
  isThere = IsValid(record) && tables.streams[record.stream].lastFrame == last;
  runBytes.resize(result.bytes);
  runBytes.erase(runBytes.begin(), runBytes.begin() + kPsiFrameRecordSize);
  firstRun = 0;
  return kPsOk;
}

// Whether the counts and links of the head hold together and fit a file with that many bytes
// behind its head. A run holds a frame at least.
bool PSReader::TablesAgree(std::uint64_t roomForRecords) const {
  const std::uint32_t count = tables.header.frameCount;
  const std::uint64_t runs = HasRunTable() ? tables.header.runCount : 0;
  if (runs > count ||
      count * std::uint64_t{kPsiFrameRecordSize} + runs * kPsiRunRecordSize > roomForRecords) {
    return false;
  }
  std::uint64_t sum = 0;
  for (const PsiStreamRecord& stream : tables.streams) {
    sum += stream.frameCount;
    if (stream.frameCount == 0) continue;
    if (stream.firstFrame > stream.lastFrame || stream.lastFrame >= count) return false;
  }
  return sum == count;
}

// Counts the records of an index whose writer never closed it, or whose head is damaged. Frames
// follow each other without a gap in the media file, which tells the last record from the run table
// behind it.
void PSReader::Recover() {
  recovered = true;
  const PsiHeader old = tables.header;
  const auto oldStreams = tables.streams;
  tables = {};
  tables.header.version = old.version;
  tables.header.runRecordSize = old.runRecordSize;
  std::uint64_t expectedOffset = 0;
  PsiFrameRecord record;
  while (tables.header.frameCount != kNoFrame && window.Read(tables.header.frameCount, record) &&
         IsValid(record) && record.Offset() == expectedOffset) {
    PsiStreamRecord& stream = tables.streams[record.stream];
    if (stream.frameCount == 0) {
      // The head knows more than the low bits that fit a frame, unless it is damaged.
      const PsiStreamRecord& known = oldStreams[record.stream];
      const std::uint8_t channel = ChannelOf(record.streamInfo);
      const std::uint8_t encoder = EncoderOf(record.streamInfo);
      stream.channel = (known.channel & 15) == channel ? known.channel : channel;
      stream.encoder = (known.encoder & 3) == encoder ? known.encoder : encoder;
    }
    expectedOffset += record.Size();
    tables.Add(record);
  }
  tables.runs.CloseAll();
  for (std::size_t i = 0; i < kStreamCount; ++i) {
    if (tables.streams[i].frameCount != 0) continue;
    tables.streams[i].channel = oldStreams[i].channel;
    tables.streams[i].encoder = oldStreams[i].encoder;
  }
}

int PSReader::LoadMedia(std::uint64_t mediaBase) {
  dataStart = mediaBase;
  // What a longer map holds beyond the known one isn't looked at.
  std::array<std::byte, kPackHeaderSize + kProgramMapSize> head;
  const IoResult result = mediaFile->ReadAt(mediaBase, head);
  NoteRefusal(result.error);
  const ConstBytes bytes = ConstBytes(head).first(result.bytes);
  if (bytes.size() < kPackHeaderSize) return kPsReadFailed;
  if (!IsPackHeader(bytes.first<kPackHeaderSize>())) return kPsOk;

  const ConstBytes map = bytes.subspan(kPackHeaderSize);
  if (map.size() < kMapHeadSize) return kPsReadFailed;
  const std::size_t length = ProgramMapLength(map.first<kMapHeadSize>());
  const std::size_t known = kMapHeadSize + std::min(length, kMaxMapLength);
  if (map.size() < known) return kPsReadFailed;
  programMap.assign(map.begin(), map.begin() + static_cast<std::ptrdiff_t>(known));
  dataStart = mediaBase + kPackHeaderSize + kMapHeadSize + length;
  return kPsOk;
}

int PSReader::GetFileInfo(PsFileInfo& info) const {
  return DecodeFileInfo(programMap, info) ? kPsOk : kPsBadArgument;
}

int PSReader::GetStreamInfo(unsigned stream, PsStreamDescriptor& descriptor) const {
  if (stream >= kStreamCount || !DecodeStreamDescriptor(programMap, stream, descriptor)) {
    return kPsBadArgument;
  }
  descriptor.channel = tables.streams[stream].channel;
  descriptor.encoder = tables.streams[stream].encoder;
  return kPsOk;
}

std::uint32_t PSReader::GetFrameCount(std::uint16_t stream) const {
  if (stream == kWholeFile) return tables.header.frameCount;
  return stream < kStreamCount ? tables.streams[stream].frameCount : 0;
}

std::uint32_t PSReader::CountFrames(std::span<const std::uint16_t> streams) const {
  return CountFrames(MaskOf(streams));
}

std::uint32_t PSReader::CountFrames(std::uint32_t mask) const {
  std::uint32_t sum = 0;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    if (Has(mask, stream)) sum += tables.streams[stream].frameCount;
  }
  return sum;
}

int PSReader::GetFirstLast(std::uint16_t stream, PackedTime& first, PackedTime& last) {
  if (GetFrameCount(stream) == 0) return kPsBadArgument;
  if (stream == kWholeFile) {
    first = Carry({tables.header.firstDate, tables.header.firstMs});
    last = Carry({tables.header.lastDate, tables.header.lastMs});
  } else {
    const PsiStreamRecord& record = tables.streams[stream];
    first = Carry({record.firstDate, record.firstMs});
    last = Carry({record.lastDate, record.lastMs});
  }
  return kPsOk;
}

// A record that exists and was written.
int PSReader::ReadRecord(std::uint32_t index, PsiFrameRecord& record) {
  if (index >= tables.header.frameCount) return kPsBadArgument;
  if (!HasIndex()) {
    record = memoryFrames[index];
    return kPsOk;
  }
  const bool isThere = window.Read(index, record);
  const int result = !isThere ? kPsReadFailed : IsValid(record) ? kPsOk : kPsBadArgument;
  damaged |= result != kPsOk && window.Error() == 0;
  return result;
}

int PSReader::GetFrame(PSReadFrame& frame) {
  PsiFrameRecord record;
  const int result = frame.stream == kWholeFile ? ReadRecord(frame.index, record)
                                                : StreamRecord(frame.stream, frame.index, record);
  return result == kPsOk ? FillFrame(record, frame) : result;
}

// Walks the stream's links to its frame `index`. Each step moves the ordinal by one towards it, so
// that links in a ring end, too.
int PSReader::StreamRecord(std::uint16_t stream, std::uint32_t index, PsiFrameRecord& record) {
  if (index >= GetFrameCount(stream)) return kPsBadArgument;
  if (!HasIndex()) return ReadRecord(memoryStreamFrames[stream][index], record);

  StreamCursor& at = streamCursors[stream];
  if (!Has(loadedCursors, stream)) {
    if (const int result = ReadRecord(tables.streams[stream].firstFrame, at.record)) return result;
    if (at.record.stream != stream) return kPsBadArgument;
    at.position = 0;
    loadedCursors |= 1u << stream;
  }
  while (at.position != index) {
    const bool forward = index > at.position;
    PsiFrameRecord next;
    const int result = ReadRecord(forward ? at.record.next : at.record.prev, next);
    if (result != kPsOk) return result;
    if (next.stream != stream) return kPsBadArgument;
    at.record = next;
    at.position = forward ? at.position + 1 : at.position - 1;
  }
  record = at.record;
  return kPsOk;
}

// Gets the frame's bytes, from what is in memory if they are there.
bool PSReader::ReadPacket(PSReadFrame& frame, std::uint32_t total) {
  for (const HeldBytes& stretch : frame.held) {
    if (frame.fileOffset < stretch.offset) continue;
    const std::uint64_t at = frame.fileOffset - stretch.offset;
    if (at + total > stretch.bytes.size()) continue;
    frame.content = stretch.bytes.subspan(at, total);
    return true;
  }
  std::size_t held = 0;  // of the frame's bytes
  if (ahead.data() == frame.packet.data() && frame.fileOffset >= aheadOffset &&
      frame.fileOffset - aheadOffset < ahead.size()) {
    const MutableBytes rest = ahead.subspan(frame.fileOffset - aheadOffset);
    // A frame that wasn't there yet may be by now.
    if (rest.size() >= total && HasStartCode(rest)) {
      frame.content = rest.first(total);
      return true;
    }
    held = rest.size() < total && HasStartCode(rest) ? rest.size() : 0;
    std::copy_n(rest.begin(), held, frame.packet.begin());
  }
  const std::size_t wanted =
      std::max<std::size_t>(total, std::min(frame.readAhead, frame.packet.size()));
  const IoResult result =
      mediaFile->ReadAt(frame.fileOffset + held, frame.packet.first(wanted).subspan(held));
  ahead = {};
  if (held + result.bytes < total) return false;
  if (frame.readAhead != 0) {
    ahead = frame.packet.first(held + result.bytes);
    aheadOffset = frame.fileOffset;
  }
  frame.content = frame.packet.first(total);
  return true;
}

int PSReader::FillFrame(const PsiFrameRecord& record, PSReadFrame& frame) {
  frame.stream = record.stream;
  frame.frameType = record.frameInfo & kFrameTypeMask;
  frame.flags = record.frameInfo & kEventFlagsMask;
  frame.channel = ChannelOf(record.streamInfo);
  frame.encoder = EncoderOf(record.streamInfo);
  frame.groupFrame = record.groupFrame;
  frame.time = Carry({record.date, record.ms});
  frame.fileOffset = dataStart + record.Offset();
  frame.userDataSize = 0;
  frame.content = {};
  const std::uint32_t total = record.Size();
  frame.size = total;
  if (frame.packet.empty()) return kPsOk;
  if (frame.packet.size() < total || total < kPesHeaderSize) return kPsBadArgument;

  if (!ReadPacket(frame, total)) return kPsReadFailed;
  const ConstBytes packet = frame.content;
  const PesHeader header = DecodePesHeader(packet.first<kPesHeaderSize>());
  const std::uint32_t pad = PadCount(header.padInfo);
  if (pad <= total - kPesHeaderSize) frame.size = total - pad;
  if (frame.userData.empty()) return kPsOk;
  const ConstBytes behindHeader = packet.subspan(kPesHeaderSize);
  const std::size_t encoded = std::min<std::size_t>(header.userDataBytes, behindHeader.size());
  frame.userDataSize = DecodeUserData(behindHeader.first(encoded), frame.userData);
  return kPsOk;
}

int PSReader::Rewind() {
  cursor = 0;
  cursorStream = 0;
  consumed = {};
  loadedCursors = 0;
  if (tables.header.frameCount == 0) return kPsOk;
  PsiFrameRecord record;
  if (const int result = ReadRecord(0, record)) return result;
  cursorStream = record.stream;
  consumed[cursorStream] = 1;
  if (HasIndex()) {
    streamCursors[cursorStream] = {0, record};
    loadedCursors = 1u << cursorStream;
  }
  return kPsOk;
}

// Moves the cursor in file order by one record, which becomes `record`.
int PSReader::StepCursor(bool forward, PsiFrameRecord& record) {
  if (!forward && (cursor == 0 || consumed[cursorStream] == 0)) return kPsBadArgument;
  const std::uint32_t wanted = forward ? cursor + 1 : cursor - 1;
  if (const int result = ReadRecord(wanted, record)) return result;
  if (!forward) --consumed[cursorStream];
  cursor = wanted;
  cursorStream = record.stream;
  if (forward) ++consumed[cursorStream];
  return kPsOk;
}

int PSReader::NextFrame(PSReadFrame& frame, std::span<const std::uint16_t> streams) {
  return streams.size() < kStreamCount ? NextFrame(frame, MaskOf(streams)) : kPsBadArgument;
}

int PSReader::NextFrame(PSReadFrame& frame, std::uint32_t mask) {
  std::uint32_t passed = 0;  // chosen frames at or before the cursor
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    if (Has(mask, stream)) passed += consumed[stream];
  }
  if (frame.index >= CountFrames(mask)) return kPsBadArgument;

  const std::uint32_t wanted = frame.index + 1;
  PsiFrameRecord record;
  bool moved = false;
  while (passed != wanted || !Has(mask, cursorStream)) {
    const bool forward = passed < wanted;
    const bool leavesChosen = !forward && Has(mask, cursorStream);
    if (const int result = StepCursor(forward, record)) return result;
    moved = true;
    if (leavesChosen) --passed;
    if (forward && Has(mask, cursorStream)) ++passed;
  }
  frame.stream = cursorStream;
  frame.index = consumed[cursorStream] - 1;
  if (!moved) {
    if (const int result = ReadRecord(cursor, record)) return result;
  }
  return FillFrame(record, frame);
}

int PSReader::SetPlace(const Place& place) {
  PsiFrameRecord record;
  if (const int result = ReadRecord(place.cursor, record)) return result;
  cursor = place.cursor;
  cursorStream = record.stream;
  consumed = place.consumed;
  return kPsOk;
}

std::uint32_t PSReader::SeekTime(std::int64_t seconds) {
  const std::uint32_t count = tables.header.frameCount;
  PackedTime first, last;
  if (GetFirstLast(kWholeFile, first, last) != kPsOk) return count;
  const auto toSeconds = [](PackedTime time) { return Unpack(time) / 1000; };
  if (toSeconds(first) > seconds) return 0;
  if (toSeconds(last) < seconds) return count;
  std::uint32_t kept = 0;
  for (std::uint32_t index = 0; index < count; ++index) {
    PsiFrameRecord record;
    if (ReadRecord(index, record) != kPsOk) continue;
    if (toSeconds({record.date, record.ms}) >= seconds) return kept;
    if ((record.frameInfo & kFrameTypeMask) == kFrameI) kept = index;
  }
  return count;
}

std::uint32_t PSReader::GetRunCount() const {
  const auto closed = static_cast<std::uint32_t>(tables.runs.Closed().size());
  return tables.header.runCount != 0 ? tables.header.runCount : closed;
}

int PSReader::ReadRun(std::uint32_t number, PsiRunRecord& record) {
  const std::size_t held = runBytes.size() / kPsiRunRecordSize;
  if (number < firstRun || number >= firstRun + held) {
    const std::uint64_t at = indexBase + FrameRecordOffset(tables.header.frameCount) +
                             std::uint64_t{number} * kPsiRunRecordSize;
    const std::size_t wanted = std::min<std::size_t>(tables.header.runCount - number, kRunsAtATime);
    runBytes.resize(wanted * kPsiRunRecordSize);
    const IoResult result = IndexSource().ReadAt(at, runBytes);
    runBytes.resize(result.bytes);
    firstRun = number;
    if (result.bytes < kPsiRunRecordSize) return kPsReadFailed;
  }
  const std::size_t at = std::size_t{number - firstRun} * kPsiRunRecordSize;
  const auto bytes = ConstBytes(runBytes).subspan(at).first<kPsiRunRecordSize>();
  return DecodeRun(bytes, record) ? kPsOk : kPsBadArgument;
}

int PSReader::GetRun(std::uint32_t number, PSRun& run) {
  if (tables.header.runRecordSize != kPsiRunRecordSize) return kPsBadArgument;
  PsiRunRecord record;
  if (number < tables.header.runCount) {
    if (const int result = ReadRun(number, record)) return result;
    // A part of the table that was never written: the runs come from the records from here on, in
    // the same order.
    if (record.firstDate == 0) Recover();
  }
  if (number >= tables.header.runCount) {
    if (number >= tables.runs.Closed().size()) return kPsBadArgument;
    record = tables.runs.Closed()[number];
  }
  run.stream = record.stream;
  run.flags = record.flags;
  run.first = Carry({record.firstDate, record.firstMs});
  run.last = Carry({record.lastDate, record.lastMs});
  return kPsOk;
}

RunTables::Table PSReader::GetRunTable() {
  PsFileInfo info;
  if (!HasRunTable() || recovered || refusal != 0 || tables.header.runCount == 0 ||
      GetFileInfo(info) != kPsOk) {
    return nullptr;
  }
  auto table = std::make_shared<RunTable>();
  table->header = tables.header;
  table->fileInput = info.fileInput[0];
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    if (tables.streams[stream].frameCount == 0) continue;
    table->streams.push_back({static_cast<std::uint8_t>(stream), tables.streams[stream]});
  }
  table->runs.resize(tables.header.runCount);
  for (std::uint32_t number = 0; number < tables.header.runCount; ++number) {
    PsiRunRecord& run = table->runs[number];
    if (ReadRun(number, run) != kPsOk || run.firstDate == 0) return nullptr;
  }
  return table;
}

std::int64_t PSReader::GetFrameOffset(std::uint32_t index) {
  PsiFrameRecord record;
  if (const int result = ReadRecord(index, record)) return result;
  return static_cast<std::int64_t>(dataStart + record.Offset());
}

int PSReader::TestFrameStart(std::uint32_t index) {
  const std::int64_t offset = GetFrameOffset(index);
  if (offset < 0) return kPsSeekFailed;
  std::array<std::byte, 3> start;
  if (!ReadAll(*mediaFile, static_cast<std::uint64_t>(offset), start)) return kPsReadFailed;
  return HasStartCode(start) ? kPsOk : kPsReadFailed;
}

}  // namespace qv::kelvo
