#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "media/PSFile.h"
#include "media/PsFormat.h"
#include "media/PsiFormat.h"
#include "media/RecordWindow.h"
#include "media/RunTables.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// A stretch of a media file that the caller has in memory.
struct HeldBytes {
  std::uint64_t offset = 0;  // in the file
  ConstBytes bytes;
};

// One frame as the reader gives it.
struct PSReadFrame {
  // Set by the caller. Empty buffers ask for less: without `packet` only the fields are filled,
  // without `userData` no metadata is decoded.
  std::uint16_t stream = kWholeFile;  // GetFrame: which stream's frame, or the whole file's
  std::uint32_t index = 0;  // GetFrame: ordinal; NextFrame: place among the chosen streams
  MutableBytes packet;      // at least 4,194,303 bytes hold any frame
  // Bytes of `packet` to fill at once, if they are more than the frame. What lies behind it serves
  // the next calls with the same `packet`, which nobody else changes meanwhile.
  std::size_t readAhead = 0;
  std::span<const HeldBytes> held;  // a frame that lies wholly in one of them isn't read
  MutableBytes userData;

  // Filled by the reader; after NextFrame `stream` and `index` name the frame within its stream.
  ConstBytes content;      // the frame within `packet` or `held`, with its padding
  std::uint32_t size = 0;  // of the frame; without its padding once `packet` was filled
  std::uint16_t frameType = 0;
  std::uint16_t groupFrame = 0;
  std::uint8_t flags = 0;  // bits 7 to 5
  std::uint8_t channel = 0;
  std::uint8_t encoder = 0;
  PackedTime time;  // carried, see Carry
  std::uint64_t fileOffset = 0;
  std::size_t userDataSize = 0;

  [[nodiscard]] UtcMs Time() const { return Unpack(time); }
};

// The frame's time since 1970 in ticks, of which a whole number makes a millisecond.
[[nodiscard]] inline std::int64_t FrameTicks(const PSReadFrame& frame,
                                             std::int64_t ticksPerSecond) {
  return ticksPerSecond * (frame.Time() / 1000) + ticksPerSecond / 1000 * (frame.Time() % 1000);
}

// A stretch of one stream without a gap.
struct PSRun {
  std::uint8_t stream = 0;
  std::uint8_t flags = 0;
  PackedTime first, last;
};

// Reads a recording (docs/media-format.md), also one that a crash left behind, whose index is lost,
// or that is being written right now: it sees the frames that were there at Open. Results are those
// of PSFile. After a failed call the object is safe to use further; after a failed Open it is
// closed. One thread at a time; whoever searches has one of his own.
//
// Nothing on disk is trusted: counts are held against the size of the file before they are used,
// each walk along links has a bound, and where the head and the records disagree the records count.
// What it makes up for a damaged file stays in memory; the files are only read.
//
// It keeps two cursors, one along each stream and one in file order, because playback steps: a step
// is a record out of a window that was read at once, a jump costs its distance. Tables of frames
// are held in memory only where there is no index to hold them.
class PSReader {
 public:
  // Borrows `files` for its life.
  explicit PSReader(MediaFiles& files);

  [[nodiscard]] int Open(const std::string& path);
  // For recordings inside another file. A non-zero `indexBase` means that the index lies in the
  // media file, too.
  [[nodiscard]] int OpenAt(const std::string& path, std::uint64_t mediaBase,
                           std::uint64_t indexBase);
  void Close();

  // -1 when the file has no program stream map, or one too short for the question.
  [[nodiscard]] int GetFileInfo(PsFileInfo& info) const;
  [[nodiscard]] int GetStreamInfo(unsigned stream, PsStreamDescriptor& descriptor) const;

  // Counts, times, channel, encoder and flags of one stream, which is below 32.
  [[nodiscard]] const PsiStreamRecord& GetStream(unsigned stream) const {
    return tables.streams[stream];
  }

  // Frames of one stream, or of the whole file for kWholeFile.
  [[nodiscard]] std::uint32_t GetFrameCount(std::uint16_t stream) const;
  // Frames of the distinct streams below 32 in the list, which has fewer than 32 entries.
  [[nodiscard]] std::uint32_t CountFrames(std::span<const std::uint16_t> streams) const;
  // The same for the streams whose bits are set in `mask`.
  [[nodiscard]] std::uint32_t CountFrames(std::uint32_t mask) const;

  // Times of the first and last frame; -1 without frames.
  [[nodiscard]] int GetFirstLast(std::uint16_t stream, PackedTime& first, PackedTime& last);

  // The frame `index` of `stream` (or of the whole file, in file order). A step to a neighbour
  // costs one record, a jump its distance.
  [[nodiscard]] int GetFrame(PSReadFrame& frame);

  // The frame at place `index` of the merged sequence of `streams`, in file order.
  [[nodiscard]] int NextFrame(PSReadFrame& frame, std::span<const std::uint16_t> streams);
  // The same for the streams whose bits are set in `mask`, all 32 if need be.
  [[nodiscard]] int NextFrame(PSReadFrame& frame, std::uint32_t mask);

  // Where NextFrame stands, to go on from there with another reader of the same file.
  struct Place {
    std::uint32_t cursor = 0;  // record number
    std::array<std::uint32_t, kStreamCount> consumed{};
  };
  [[nodiscard]] Place GetPlace() const { return {cursor, consumed}; }
  // -1 or -4, with the place as it was, if the record isn't there.
  [[nodiscard]] int SetPlace(const Place& place);

  // Record number of the last I frame before `seconds` (UTC): where decoding starts for that
  // moment. 0 for a time before the file, the frame count for one behind it.
  [[nodiscard]] std::uint32_t SeekTime(std::int64_t seconds);

  // Puts both cursors to the first frame.
  [[nodiscard]] int Rewind();

  // Whether the format version has a run table. How many runs GetRun serves.
  [[nodiscard]] bool HasRunTable() const {
    return HasIndex() && tables.header.runRecordSize == kPsiRunRecordSize;
  }
  [[nodiscard]] std::uint32_t GetRunCount() const;
  [[nodiscard]] int GetRun(std::uint32_t number, PSRun& run);

  // What a listing asks of a closed recording. Null when that isn't all in the index, or can't be
  // read.
  [[nodiscard]] RunTables::Table GetRunTable();
  // The state of the index when it was opened; may be unknown.
  [[nodiscard]] FileStamp IndexStamp() const {
    return indexFile != nullptr ? indexFile->OpenedAs() : FileStamp{};
  }

  // Place of a frame in the media file, or a negative result.
  [[nodiscard]] std::int64_t GetFrameOffset(std::uint32_t index);
  // 0 when the media file has 00 00 01 where frame `index` begins, else -3 or -4.
  [[nodiscard]] int TestFrameStart(std::uint32_t index);

  // False when the frames come from a scan of the media file.
  [[nodiscard]] bool HasIndex() const { return indexFile != nullptr || indexInMedia; }
  // True when the head's counts were of no use and the records were counted instead.
  [[nodiscard]] bool WasRecovered() const { return recovered; }
  // The error number with which the system refused a part of the last Open, also of one that made
  // do without it; 0 when it gave all there is. A file that isn't there is no refusal.
  [[nodiscard]] int RefusedBySystem() const { return refusal; }
  // Whether anything since the last Open showed that the files are damaged, also after Close.
  [[nodiscard]] bool IsDamaged() const { return damaged; }

 private:
  void NoteRefusal(int error);
  [[nodiscard]] int LoadIndex();
  [[nodiscard]] bool TablesAgree(std::uint64_t roomForRecords) const;
  [[nodiscard]] int LoadEnd(bool& isThere);
  void Recover();
  [[nodiscard]] int LoadMedia(std::uint64_t mediaBase);
  void ScanMedia();
  [[nodiscard]] bool ScanFrame(ConstPesHeaderBytes bytes, std::uint64_t position,
                               PsiFrameRecord& record);
  [[nodiscard]] MediaFile& IndexSource() { return indexInMedia ? *mediaFile : *indexFile; }

  [[nodiscard]] int ReadRun(std::uint32_t number, PsiRunRecord& record);
  [[nodiscard]] int ReadRecord(std::uint32_t index, PsiFrameRecord& record);
  [[nodiscard]] int StreamRecord(std::uint16_t stream, std::uint32_t index, PsiFrameRecord& record);
  [[nodiscard]] bool ReadPacket(PSReadFrame& frame, std::uint32_t total);
  [[nodiscard]] int FillFrame(const PsiFrameRecord& record, PSReadFrame& frame);
  [[nodiscard]] int StepCursor(bool forward, PsiFrameRecord& record);

  MediaFiles& files;
  std::unique_ptr<MediaFile> mediaFile;
  std::unique_ptr<MediaFile> indexFile;  // null without an index, or when it lies in the media file
  bool indexInMedia = false;
  bool recovered = false;
  int refusal = 0;
  bool damaged = false;
  std::uint64_t indexBase = 0;
  std::uint64_t dataStart = 0;       // offset of the first frame
  std::int64_t creationSeconds = 0;  // of a media file without an index
  // What was read ahead: its place in the media file, and where it lies in memory.
  std::uint64_t aheadOffset = 0;
  MutableBytes ahead;
  std::vector<std::byte> programMap;  // empty when the file has none
  PsiTables tables;
  RecordWindow window;
  std::vector<std::byte> runBytes;  // a stretch of the run table
  std::uint32_t firstRun = 0;       // number of its first run

  // Without an index: all frames, and each stream's as positions in them.
  std::vector<PsiFrameRecord> memoryFrames;
  std::array<std::vector<std::uint32_t>, kStreamCount> memoryStreamFrames;

  // Cursor along each stream whose bit is set.
  struct StreamCursor {
    std::uint32_t position = 0;  // ordinal of `record` within the stream
    PsiFrameRecord record;
  };
  std::uint32_t loadedCursors = 0;
  std::array<StreamCursor, kStreamCount> streamCursors;

  // Cursor in file order.
  std::uint32_t cursor = 0;
  std::uint8_t cursorStream = 0;
  std::array<std::uint32_t, kStreamCount> consumed{};  // frames at or before the cursor
};

}  // namespace qv::kelvo
