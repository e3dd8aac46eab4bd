#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/PSFile.h"
#include "record/ChannelSlot.h"
#include "record/PendingFrames.h"
#include "record/RecordServices.h"
#include "record/RecordStats.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {

// A file lives this long, in milliseconds.
inline constexpr std::int64_t kFileLifeMs = qv::kelvo::kFileSeconds * 1000;

// One series of recordings: the file being written, with up to 32 channels, and the frames that
// wait for their fate.
//
// A picture can't be decoded without its key frame, so keeping and dropping are decided for a whole
// group of pictures, once its last frame is known, which is when the next key frame has come. That
// is also how what came before motion or an alarm can be kept without a second pass: it still
// waits. It keeps these things true:
// - a group is written whole, or without pictures that nothing written depends on, and a file
//   begins, in each channel, with a key frame;
// - frames reach the file in the order of their arrival, whatever their clocks say, but for those
//   that complete a group when the file ends;
// - every buffer taken is given back once, written or not.
//
// The price is memory for as long as pre-alarm says, and that the last group before silence stays
// undecided. What is decided gathers in a run, whose index records and frames take two writes: 0.08
// file calls a frame at groups of 25.
//
// A stream is a device's multiplexed one, an encoder's, or a single channel's, split off because
// its recordings expire by a rule of their own. StreamSet owns it. Worker thread only:
// configuration code sets the public members, frames come through StreamAddFrame, files through
// OpenFile and CloseFile.
class RecordStream {
 public:
  // Borrows `services` for its life.
  RecordStream(RecordServices& services, std::uint32_t id);
  // Ends the file as CloseFile does, but without writing what is pending and without removing an
  // empty file, and releases all pending buffers.
  ~RecordStream();
  RecordStream(const RecordStream&) = delete;
  RecordStream& operator=(const RecordStream&) = delete;

  // Takes one frame. True: the stream owns the buffer's reference now. False: the caller releases.
  // First flushes what earlier frames have settled. `header` is borrowed for the call. Refused are
  // frames of a provider that isn't mapped here, without a buffer, with a capture time that no file
  // can hold (unless they are packets, which have their own), and packets that don't begin as one.
  // A length of 0 is an empty payload.
  bool StreamAddFrame(std::uint32_t provider, void* buffer, std::uint32_t length,
                      std::uint32_t subCode, const KelvoFrameHeader& header, bool ptz);

  // Writes or drops the frames whose waiting time is over.
  void FlushPending();

  // Sets `flagBit` on the slot's pending frames from the newest back, up to the first one that was
  // captured before `since`, which stays as it is.
  void MarkPending(qv::kelvo::UtcMs since, int slot, std::uint8_t flagBit);

  // Releases and forgets the slot's pending frames.
  void DropSlotFrames(int slot);
  // The same, and makes the slot empty (BufSizeSamples and SampleRate stay); no provider's frames
  // go there any more.
  void ResetSlot(int slot);
  // Appends the pending frames of another stream's slot to those of `slot`, by their time among the
  // rest.
  void TakeSlotFrames(RecordStream& from, int fromSlot, int slot);

  // From now on frames of providers with that low byte go to the slot, and no others.
  void MapChannel(std::uint32_t lowByte, int slot);
  // The slot of a provider's frames; -1 when it is unknown here.
  [[nodiscard]] int SlotOf(std::uint32_t provider) const;

  // Opens the next file on a volume with room, closing the one before; without a volume that one
  // stays open. Logs changes of state only. While the search for room goes on, frames that are to
  // be written wait for its end. A stream without active channels asks for a volume all the same,
  // and makes the directories there, but opens nothing.
  void OpenFile();
  // Ends the file, if one is open; one without frames is removed. Pending frames that continue a
  // group of the file go into it first.
  void CloseFile();
  [[nodiscard]] bool HasFile() const { return OpenTime.has_value(); }
  // When the file was opened, wall clock; nothing when none is open. Stays after a write error.
  [[nodiscard]] std::optional<qv::kelvo::UtcMs> GetOpenTime() const { return OpenTime; }
  // Whether the file's time is over: its age is full or negative.
  [[nodiscard]] bool FileOver(qv::kelvo::UtcMs now) const;
  // Whether the last attempt to open a file failed for another reason than want of a volume.
  [[nodiscard]] bool OpeningFailed() const { return OpenFailed; }
  // There is no volume: tells so once. Does nothing while the search for room goes on.
  void NoteNoVolume();
  // From now on each change of the open time sets `*flag`, which outlives the stream.
  void ReportFileChangesTo(bool* flag) { FileChanged = flag; }

  // Takes over CFileSystem's global time-lapse interval.
  void RefreshDefaultLapse();

  // The slot's input number within the stream's device, of which each encoder has sixteen; negative
  // when the slot is empty.
  [[nodiscard]] int EffectiveInput(int slot) const;

  // Bytes written since the last call, over all slots.
  [[nodiscard]] std::uint64_t TakeWrittenBytes();

  const std::uint32_t OwnId;   // the id at creation
  std::uint32_t StreamId;      // key of all lookups; not changed once in a StreamSet
  std::uint32_t AltId = 0;     // a second provider id routed here; 0 if none
  std::uint32_t ParentId = 0;  // the stream this one split from; 0 if none
  std::uint8_t Layout = qv::kelvo::kWholeDevice;  // low byte of an encoder stream's id
  std::bitset<kSlots> ActiveChannels;             // slots that record here; without one no file
  std::int32_t DefaultLapse = 0;                  // milliseconds; below 1 is off
  std::array<ChannelSlot, kSlots> Slots;

  // What is undecided, for looking at.
  [[nodiscard]] const PendingFrames& Undecided() const { return Pending; }

 private:
  // Of a pending frame; Open is undecided.
  enum class Fate { Open, Write, Drop };

  // RecordStream.cpp: intake and flush.
  [[nodiscard]] bool HasUsableTime(std::uint32_t provider, int slot, qv::kelvo::UtcMs time);
  [[nodiscard]] static bool FillFrame(PendingFrame& frame, const KelvoFrameHeader& header);
  void ApplyAlarmAndMotion(PendingFrame& frame);
  [[nodiscard]] Fate DecideFront(const PendingFrame& front, qv::kelvo::UtcMs newest);
  [[nodiscard]] bool ThinGroup(const PendingFrame& front, const PendingFrame& next);
  [[nodiscard]] int HourOf(const PendingFrame& frame);
  [[nodiscard]] bool AwaitsVolume() const;
  void FlushSettled();
  void Drop(PendingFrame* frame);
  void Release(PendingFrame* frame);

  // RecordFile.cpp: the file's life.
  [[nodiscard]] int OpenWriter(const std::string& path);
  bool CloseWriter();
  void EndWriter();
  void WriteContinuedGroups();
  void ForgetFile();
  // Whether a frame that is written counts in the minute's statistics. What a file takes along at
  // its end doesn't.
  enum class Counted { No, Yes };
  void WriteSoon(PendingFrame* frame, Counted counted);
  void WriteRun(Counted counted);
  void EndRun();
  void WriteStreamFrames(Counted counted);
  void NoteWritten(const PendingFrame& frame);
  void CountWritten(const PendingFrame& frame);
  [[nodiscard]] std::int64_t FlushNs();

  RecordServices& Services;
  PendingFrames Pending;
  const PendingFrame* Settled = nullptr;  // the oldest, to be written once there is a volume
  // Frames to be written at once, no longer pending; empty between calls.
  std::vector<PendingFrame*> Run;
  std::vector<qv::kelvo::PSFrame> RunFrames;  // memory for what the file takes of them
  std::bitset<kSlots> RunSlots;               // those of the run
  std::array<std::int32_t, 256> ChannelMap;   // low byte of a provider id to slot, -1 unknown
  qv::kelvo::PSFile Writer;
  std::string CurrentPath;  // while the writer is open
  std::string FileName;     // while OpenTime is set
  std::optional<qv::kelvo::UtcMs> OpenTime;
  bool NoVolume = false;          // the last attempt found no record volume
  bool OpenFailed = false;        // the last attempt to open failed
  bool* FileChanged = nullptr;    // set when OpenTime changes; null outside a StreamSet
  std::bitset<kSlots> BadClocks;  // slots whose last frame had a time that no file can hold
  std::array<qv::kelvo::HourOfWeekClock, kSlots> Hours;  // per slot: cameras' clocks may differ
  std::array<RateMeter, kSlots> Rates;
  std::optional<std::int64_t> SteadyOfFlush;  // read once per flush that writes
};

}  // namespace qvsvr::kelvo
