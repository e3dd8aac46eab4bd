#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "media/FrameRun.h"
#include "media/PsFormat.h"
#include "media/PsiFormat.h"
#include "media/RecordTail.h"
#include "media/RunTables.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// Results of PSFile operations.
inline constexpr int kPsOk = 0;
inline constexpr int kPsBadArgument = -1;
inline constexpr int kPsOpenFailed = -2;
inline constexpr int kPsSeekFailed = -3;
inline constexpr int kPsReadFailed = -4;
inline constexpr int kPsWriteFailed = -5;

// The index beside a media file: the same path with `i` appended.
[[nodiscard]] std::string IndexPath(const std::string& mediaPath);

// One frame on its way to the writer. All pointers are borrowed for the call.
struct PSFrame {
  std::uint16_t stream = 0;                    // 0 to 15 video, 16 to 31 audio
  std::uint16_t frameType = 0;                 // 0 audio, 1 I, 2 P, 3 B
  std::uint32_t size = 0;                      // bytes of `packet`
  std::uint16_t year = 0, month = 0, day = 0;  // UTC, month from 1
  std::uint32_t hour = 0, minute = 0, second = 0, millisecond = 0;
  const std::byte* packet = nullptr;     // a ready-made PES packet instead of the parts below
  std::uint8_t channel = 0;              // low four bits
  std::uint8_t flags = 0;                // bits 7 to 5
  std::uint16_t presentationOffset = 0;  // milliseconds added to the PTS
  const std::byte* userData = nullptr;
  std::uint64_t userDataSize = 0;  // at most 87; whole triples are kept
  const std::byte* payload = nullptr;
  std::uint32_t payloadSize = 0;
  std::uint8_t encoder = 0;  // low two bits

  // Sets `year` to `millisecond`. A moment that the format can't hold makes a frame that is
  // refused.
  void SetTime(UtcMs time);
};

// One recording: a `.ps` media file and its `.psi` index (docs/media-format.md). Its stream owns
// it; one thread at a time, while readers use their own object on the same files.
//
// What it keeps true at every moment, so that a death of the process needs no repair: the record of
// a frame is in the index before the first byte of the frame is in the media file, and a frame that
// counts as written is there whole. So a reader finds each frame, and behind the last of them at
// most one run of records without frames, which it passes over. Only `Close` writes the counts and
// the run table at the head: an index without them is counted anew by whoever reads it.
//
// A run of frames costs two writes. The newest records stay in memory for the links that a later
// frame of the same stream sets in them; for an older one they are written one by one.
class PSFile {
 public:
  // Borrows both for its life. `closed`, which may be null, is told of each recording that is
  // closed as it should be.
  explicit PSFile(MediaFiles& mediaFiles, RunTables* closed = nullptr);
  ~PSFile();  // closes
  PSFile(const PSFile&) = delete;
  PSFile& operator=(const PSFile&) = delete;

  // Opens a new pair, emptying files that exist, and writes the fixed parts. `descriptors` are one
  // per stream number. `preallocateBytes` sizes both files in advance; 0 doesn't. An index path of
  // more than 260 bytes is refused with -2. After a failure the object is closed and what was
  // opened is removed, except after -1 for a non-zero `fileInfo.level`, where the files stay open
  // until Close.
  [[nodiscard]] int Create(const std::string& newPath, const PsFileInfo& fileInfo,
                           std::span<const PsStreamDescriptor, kStreamCount> descriptors,
                           std::uint64_t preallocateBytes);

  // Appends frames: the index records of up to FrameRun::kFrames of them first, then their media
  // bytes, in two writes as a rule. `written` counts those that are in the file whole. Returns 0;
  // -1 for a bad frame, of which nothing is written, while those before it are; or -3 to -5, after
  // which the caller closes the file. It then ends behind the last whole frame, as far as the
  // system lets it.
  [[nodiscard]] int WriteFrames(std::span<const PSFrame> frames, std::size_t& written);
  [[nodiscard]] int WriteFrame(const PSFrame& frame);

  // Appends a complete, final packet of a multiple of 32 bytes; only its previous-size field is
  // filled in, in place. Returns as WriteFrame.
  [[nodiscard]] int WritePacket(MutableBytes packet);

  // Writes the run table and the final index head, and resets the object. Harmless when closed.
  void Close();

  // Open for writing.
  [[nodiscard]] bool IsWriting() const;

  // Frames of one stream, or of the whole file for kWholeFile.
  [[nodiscard]] std::uint32_t GetFrameCount(std::uint16_t stream) const;

  // Runs that have ended, and those with a frame that are still open.
  [[nodiscard]] std::size_t ClipCount() const;

  // Bytes of both files on disk and of runs not yet written.
  [[nodiscard]] std::uint64_t GetDiskSize();

  // Access mode of the media and of the index file, for systems that have one; they return 0 and do
  // nothing here, since Create gives the mode.
  [[nodiscard]] int SetMediaAccessMode(unsigned mode) const;
  [[nodiscard]] int SetIndexAccessMode(unsigned mode) const;

 private:
  [[nodiscard]] int OpenPair(std::uint64_t preallocateBytes);
  [[nodiscard]] int WriteFixedParts(const PsFileInfo& fileInfo,
                                    std::span<const PsStreamDescriptor, kStreamCount> descriptors);
  [[nodiscard]] bool HasRoomFor(const FrameRun& run) const;
  [[nodiscard]] int AddFrame(const PSFrame& frame, FrameRun& run);
  [[nodiscard]] int AddParts(const PSFrame& frame, FrameRun& run);
  [[nodiscard]] int AddReadyPacket(const PSFrame& frame, FrameRun& run);
  [[nodiscard]] int AddIndexEntry(PesHeaderBytes pesHeader, std::uint64_t size, FrameRun& run);
  void AddRecord(const PsiFrameRecord& record, FrameRun& run);
  [[nodiscard]] FrameRun BeginRun();
  [[nodiscard]] int WriteRun(const FrameRun& run, std::size_t& written);
  [[nodiscard]] bool WriteRecords(const FrameRun& run);
  void TakeBack(const FrameRun& run);
  [[nodiscard]] bool WriteLink(unsigned stream, std::uint32_t next);
  [[nodiscard]] std::uint64_t WriteMedia(std::span<const ConstBytes> parts);
  [[nodiscard]] bool WriteIndexAt(std::uint64_t offset, ConstBytes bytes);
  [[nodiscard]] bool WriteIndexHead();
  [[nodiscard]] std::uint64_t WriteRuns();
  [[nodiscard]] bool FinishIndex();
  void TellClosed();
  void Abandon();
  void Reset();

  MediaFiles& files;
  RunTables* const closedTables;
  std::string path;
  std::unique_ptr<MediaFile> indexFile;
  std::unique_ptr<MediaFile> mediaFile;
  std::uint64_t dataStart = 0;  // of the first frame in the media file; 0 until the map is written
  std::uint64_t indexBase = 0;  // of the index in its file
  bool writable = false;
  bool failed = false;        // a write failed: nothing may follow
  bool preallocated = false;  // sized in advance: the end is cut at close
  PsiTables tables;
  FileEnd end;
  std::array<PsiFrameRecord, kStreamCount> lastRecords{};  // of each stream, as they are on disk
  RecordTail tail;                                         // the newest of all records
  std::array<std::uint8_t, kStreamCount> streamIds{};
  std::uint8_t fileInput = 0;
};

}  // namespace qv::kelvo
