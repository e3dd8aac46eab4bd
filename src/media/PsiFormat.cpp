#include "media/PsiFormat.h"

#include <algorithm>

#include "media/ByteOrder.h"

namespace qv::kelvo {

namespace {

namespace header_at {
constexpr std::size_t kVersion = 0;
constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kStreamRecordSize = 8;
constexpr std::size_t kFrameRecordSize = 12;
constexpr std::size_t kStreamCount = 16;
constexpr std::size_t kFrameCount = 20;
constexpr std::size_t kFirstDate = 24;
constexpr std::size_t kLastDate = 26;
constexpr std::size_t kFirstMs = 28;
constexpr std::size_t kLastMs = 32;
constexpr std::size_t kRunRecordSize = 36;
constexpr std::size_t kRunCount = 40;
}  // namespace header_at

namespace stream_at {
constexpr std::size_t kFrameCount = 0;
constexpr std::size_t kFirstFrame = 4;
constexpr std::size_t kLastFrame = 8;
constexpr std::size_t kFirstDate = 12;
constexpr std::size_t kLastDate = 14;
constexpr std::size_t kFirstMs = 16;
constexpr std::size_t kLastMs = 20;
constexpr std::size_t kChannel = 24;
constexpr std::size_t kFlags = 25;
constexpr std::size_t kEncoder = 26;
}  // namespace stream_at

namespace frame_at {
constexpr std::size_t kStream = 0;
constexpr std::size_t kFrameInfo = 2;
constexpr std::size_t kStreamInfo = 3;
constexpr std::size_t kSizeUnits = 4;
constexpr std::size_t kDate = 6;
constexpr std::size_t kMs = 8;
constexpr std::size_t kOffsetUnits = 12;
constexpr std::size_t kPrev = 16;
constexpr std::size_t kNext = 20;
constexpr std::size_t kGroupFrame = 24;
constexpr std::size_t kSizeHigh = 26;
}  // namespace frame_at

namespace run_at {
constexpr std::size_t kStream = 0;
constexpr std::size_t kFlags = 1;
constexpr std::size_t kReserved = 2;
constexpr std::size_t kFirstDate = 4;
constexpr std::size_t kLastDate = 6;
constexpr std::size_t kFirstMs = 8;
constexpr std::size_t kLastMs = 12;
}  // namespace run_at

// A gap of this length ends a run.
constexpr std::uint32_t kRunGapMs = 1001;

bool Continues(const PsiRunRecord& run, const PsiFrameRecord& record) {
  // Unsigned on purpose: an earlier frame is far away.
  return run.flags == (record.frameInfo & kEventFlagsMask) && run.lastDate == record.date &&
         record.ms - run.lastMs < kRunGapMs;
}

}  // namespace

void Encode(const PsiHeader& header, std::span<std::byte, kPsiHeaderSize> bytes) {
  using namespace header_at;
  std::ranges::fill(bytes, std::byte{0});
  PutLE32(bytes, kVersion, header.version);
  PutLE32(bytes, kHeaderSize, header.headerSize);
  PutLE32(bytes, kStreamRecordSize, header.streamRecordSize);
  PutLE32(bytes, kFrameRecordSize, header.frameRecordSize);
  PutLE32(bytes, header_at::kStreamCount, header.streamCount);
  PutLE32(bytes, kFrameCount, header.frameCount);
  PutLE16(bytes, kFirstDate, header.firstDate);
  PutLE16(bytes, kLastDate, header.lastDate);
  PutLE32(bytes, kFirstMs, header.firstMs);
  PutLE32(bytes, kLastMs, header.lastMs);
  PutLE32(bytes, kRunRecordSize, header.runRecordSize);
  PutLE32(bytes, kRunCount, header.runCount);
}

PsiHeader DecodeHeader(std::span<const std::byte, kPsiHeaderSize> bytes) {
  using namespace header_at;
  PsiHeader header;
  header.version = GetLE32(bytes, kVersion);
  header.headerSize = GetLE32(bytes, kHeaderSize);
  header.streamRecordSize = GetLE32(bytes, kStreamRecordSize);
  header.frameRecordSize = GetLE32(bytes, kFrameRecordSize);
  header.streamCount = GetLE32(bytes, header_at::kStreamCount);
  header.frameCount = GetLE32(bytes, kFrameCount);
  header.firstDate = GetLE16(bytes, kFirstDate);
  header.lastDate = GetLE16(bytes, kLastDate);
  header.firstMs = GetLE32(bytes, kFirstMs);
  header.lastMs = GetLE32(bytes, kLastMs);
  header.runRecordSize = GetLE32(bytes, kRunRecordSize);
  header.runCount = GetLE32(bytes, kRunCount);
  return header;
}

void Encode(const PsiStreamRecord& record, std::span<std::byte, kPsiStreamRecordSize> bytes) {
  using namespace stream_at;
  std::ranges::fill(bytes, std::byte{0});
  PutLE32(bytes, kFrameCount, record.frameCount);
  PutLE32(bytes, kFirstFrame, record.firstFrame);
  PutLE32(bytes, kLastFrame, record.lastFrame);
  PutLE16(bytes, kFirstDate, record.firstDate);
  PutLE16(bytes, kLastDate, record.lastDate);
  PutLE32(bytes, kFirstMs, record.firstMs);
  PutLE32(bytes, kLastMs, record.lastMs);
  PutU8(bytes, kChannel, record.channel);
  PutU8(bytes, kFlags, record.flags);
  PutU8(bytes, kEncoder, record.encoder);
}

// Each record is filled where it stands: many are decoded for each file that is listed.
void DecodeStreams(std::span<const std::byte> bytes, std::span<PsiStreamRecord> records) {
  using namespace stream_at;
  for (PsiStreamRecord& record : records) {
    record.frameCount = GetLE32(bytes, kFrameCount);
    record.firstFrame = GetLE32(bytes, kFirstFrame);
    record.lastFrame = GetLE32(bytes, kLastFrame);
    record.firstDate = GetLE16(bytes, kFirstDate);
    record.lastDate = GetLE16(bytes, kLastDate);
    record.firstMs = GetLE32(bytes, kFirstMs);
    record.lastMs = GetLE32(bytes, kLastMs);
    record.channel = GetU8(bytes, kChannel);
    record.flags = GetU8(bytes, kFlags);
    record.encoder = GetU8(bytes, kEncoder);
    bytes = bytes.subspan(kPsiStreamRecordSize);
  }
}

void Encode(const PsiFrameRecord& record, std::span<std::byte, kPsiFrameRecordSize> bytes) {
  using namespace frame_at;
  std::ranges::fill(bytes, std::byte{0});
  PutU8(bytes, kStream, record.stream);
  PutU8(bytes, kFrameInfo, record.frameInfo);
  PutU8(bytes, kStreamInfo, record.streamInfo);
  PutLE16(bytes, kSizeUnits, record.sizeUnits);
  PutLE16(bytes, kDate, record.date);
  PutLE32(bytes, kMs, record.ms);
  PutLE32(bytes, kOffsetUnits, record.offsetUnits);
  PutLE32(bytes, kPrev, record.prev);
  PutLE32(bytes, kNext, record.next);
  PutLE16(bytes, kGroupFrame, record.groupFrame);
  PutU8(bytes, kSizeHigh, record.sizeHigh);
}

PsiFrameRecord DecodeFrame(std::span<const std::byte, kPsiFrameRecordSize> bytes) {
  using namespace frame_at;
  PsiFrameRecord record;
  record.stream = GetU8(bytes, kStream);
  record.frameInfo = GetU8(bytes, kFrameInfo);
  record.streamInfo = GetU8(bytes, kStreamInfo);
  record.sizeUnits = GetLE16(bytes, kSizeUnits);
  record.date = GetLE16(bytes, kDate);
  record.ms = GetLE32(bytes, kMs);
  record.offsetUnits = GetLE32(bytes, kOffsetUnits);
  record.prev = GetLE32(bytes, kPrev);
  record.next = GetLE32(bytes, kNext);
  record.groupFrame = GetLE16(bytes, kGroupFrame);
  record.sizeHigh = GetU8(bytes, kSizeHigh);
  return record;
}

void Encode(const PsiRunRecord& record, std::span<std::byte, kPsiRunRecordSize> bytes) {
  using namespace run_at;
  PutU8(bytes, kStream, record.stream);
  PutU8(bytes, kFlags, record.flags);
  PutLE16(bytes, kReserved, 0);
  PutLE16(bytes, kFirstDate, record.firstDate);
  PutLE16(bytes, kLastDate, record.lastDate);
  PutLE32(bytes, kFirstMs, record.firstMs);
  PutLE32(bytes, kLastMs, record.lastMs);
}

bool DecodeRun(std::span<const std::byte, kPsiRunRecordSize> bytes, PsiRunRecord& record) {
  using namespace run_at;
  if (GetU8(bytes, kStream) >= kStreamCount || GetLE16(bytes, kReserved) != 0) return false;
  record.stream = GetU8(bytes, kStream);
  record.flags = GetU8(bytes, kFlags);
  record.firstDate = GetLE16(bytes, kFirstDate);
  record.lastDate = GetLE16(bytes, kLastDate);
  record.firstMs = GetLE32(bytes, kFirstMs);
  record.lastMs = GetLE32(bytes, kLastMs);
  return true;
}

bool IsValid(const PsiHeader& header) {
  return header.version != 0 && header.headerSize == kPsiHeaderSize &&
         header.streamRecordSize == kPsiStreamRecordSize &&
         header.frameRecordSize == kPsiFrameRecordSize;
}

bool IsValid(const PsiFrameRecord& record) {
  return record.stream < kStreamCount && (record.prev != 0 || record.next != 0);
}

void PsiRuns::Add(const PsiFrameRecord& record) {
  // All that are open can then be ended without memory.
  if (closedRuns.capacity() - closedRuns.size() <= kStreamCount) {
    closedRuns.reserve(2 * (closedRuns.size() + kStreamCount));
  }
  PsiRunRecord& run = openRuns[record.stream];
  if (run.firstDate != 0 && !Continues(run, record)) {
    closedRuns.push_back(run);
    run.firstDate = 0;
  }
  if (run.firstDate == 0) run = {record.stream, 0, record.date, 0, record.ms, 0};
  run.flags |= record.frameInfo & kEventFlagsMask;
  run.lastDate = record.date;
  run.lastMs = record.ms;
}

void PsiRuns::CloseAll() {
  for (PsiRunRecord& run : openRuns) {
    if (run.firstDate != 0) closedRuns.push_back(run);
    run = {};
  }
}

void PsiRuns::Clear() {
  openRuns = {};
  closedRuns.clear();
}

std::size_t PsiRuns::OpenCount() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(openRuns, [](const PsiRunRecord& run) { return run.firstDate != 0; }));
}

void PsiTables::Add(const PsiFrameRecord& record) {
  runs.Add(record);  // may throw, and then nothing was added
  PsiStreamRecord& stream = streams[record.stream];
  if (stream.frameCount == 0) {
    stream.firstFrame = header.frameCount;
    stream.firstDate = record.date;
    stream.firstMs = record.ms;
    stream.flags = 0;
  }
  ++stream.frameCount;
  stream.lastFrame = header.frameCount;
  stream.lastDate = record.date;
  stream.lastMs = record.ms;
  stream.flags |= record.frameInfo & kEventFlagsMask;

  if (header.frameCount == 0) {
    header.firstDate = record.date;
    header.firstMs = record.ms;
  }
  ++header.frameCount;
  header.lastDate = record.date;
  header.lastMs = record.ms;
}

}  // namespace qv::kelvo
