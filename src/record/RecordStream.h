#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "media/LocalTime.h"
#include "media/PSFile.h"
#include "record/ChannelSlot.h"
#include "record/PendingFrames.h"
#include "record/RateMeter.h"
#include "record/RecordServices.h"

namespace qvsvr::kelvo {

// One media file being written, with up to 32 channels, and the frames that wait for their fate.
// Worker thread only. Configuration code sets the public members; frames come through
// StreamAddFrame, files through OpenFile and CloseFile.
class RecordStream {
 public:
  // Borrows `services` for its life.
  RecordStream(RecordServices& services, std::uint32_t id);
  // Ends the file as CloseFile does, but without removing an empty one, and releases all pending
  // buffers.
  ~RecordStream();
  RecordStream(const RecordStream&) = delete;
  RecordStream& operator=(const RecordStream&) = delete;

  // Takes one frame. True: the stream owns the buffer's reference now. False: the caller releases.
  // First flushes what earlier frames have settled. `header` is borrowed for the call.
  bool StreamAddFrame(std::uint32_t provider, void* buffer, std::uint32_t length,
                      std::uint32_t subCode, const KelvoFrameHeader& header, bool ptz);

  // Writes or drops the frames whose waiting time is over.
  void FlushPending();

  // Sets `flagBit` on the slot's pending frames captured at `since` or later.
  void MarkPending(qv::kelvo::UtcMs since, int slot, std::uint8_t flagBit);

  // Releases and forgets the slot's pending frames.
  void DropSlotFrames(int slot);
  // The same, and makes the slot empty (BufSizeSamples and SampleRate stay).
  void ResetSlot(int slot);

  // Opens the next file on a volume with room, closing the one before. Logs changes of state only.
  void OpenFile();
  // Ends the file, if one is open; one without frames is removed.
  void CloseFile();
  [[nodiscard]] bool HasFile() const { return OpenTime.has_value(); }

  // Takes over CFileSystem's global time-lapse interval.
  void RefreshDefaultLapse();

  // The slot's input number within the stream's device; negative when the slot is empty.
  [[nodiscard]] int EffectiveInput(int slot) const;

  // Bytes written since the last call, over all slots.
  [[nodiscard]] std::uint64_t TakeWrittenBytes();

  const std::uint32_t OwnId;      // the id at creation
  std::uint32_t StreamId;         // key of all lookups
  std::uint32_t AltId = 0;        // a second provider id routed here; 0 if none
  std::uint32_t ParentId = 0;     // the stream this one split from; 0 if none
  std::uint8_t Layout = 0xFF;     // low byte of an encoder stream's id
  std::int64_t ActiveChannels = 0;  // slots that record here; at 0 no file is opened
  std::int32_t DefaultLapse = 0;  // milliseconds; below 1 is off
  std::array<std::int32_t, 256> ChannelMap;  // low byte of a provider id to slot, -1 unknown
  std::array<ChannelSlot, kSlots> Slots;
  // When the file was opened, wall clock; nothing when none is open.
  std::optional<qv::kelvo::UtcMs> OpenTime;

  [[nodiscard]] const PendingFrames& PendingForTest() const { return Pending; }

 private:
  RecordServices& Services;
  PendingFrames Pending;
  // (decision, file members)
};

}  // namespace qvsvr::kelvo
