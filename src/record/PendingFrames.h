#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>

#include "media/PsFormat.h"
#include "platform/Clock.h"
#include "record/ChannelSlot.h"

namespace qvsvr::kelvo {

using qv::kelvo::kFlagAlarm;
using qv::kelvo::kFlagMotion;
using qv::kelvo::kFrameB;
using qv::kelvo::kFrameI;
using qv::kelvo::kFrameP;

// A frame whose fate is open. Owns one reference to `Buffer`, which whoever removes the frame
// releases. The links belong to PendingFrames. What every look at a waiting frame needs lies in its
// first 64 bytes.
struct alignas(64) PendingFrame {
  qv::kelvo::UtcMs Time = 0;      // capture time
  PendingFrame* Older = nullptr;  // arrival order over all slots
  PendingFrame* Newer = nullptr;
  PendingFrame* SlotOlder = nullptr;  // arrival order within the slot
  PendingFrame* SlotNewer = nullptr;
  PendingFrame* NextKey = nullptr;  // on types 0 and 1: the next such frame of the slot
  void* Buffer = nullptr;           // the host's counted buffer
  std::uint32_t Size = 0;           // payload bytes
  std::uint8_t Slot = 0;            // below kSlots
  std::uint8_t Type = 0;            // 0 audio, 1 I, 2 P, 3 B
  std::uint8_t Flags = 0;
  bool Ptz = false;  // the camera was moving

  std::uint32_t Provider = 0;
  std::uint8_t ExtensionLength = 0;
  bool IsPes = false;                       // Buffer holds a PES packet
  std::uint16_t Home = 0;                   // place within its slab
  std::array<std::uint8_t, 128> Extension;  // ExtensionLength bytes (at most 128) are set

  // Types 0 and 1 stand alone; the others depend on what came before.
  [[nodiscard]] bool IsKey() const { return Type < kFrameP; }
};

// The undecided frames of a stream. They stand in two orders at once: that of arrival, in which
// they are written, and that of their slot, with a link from key frame to key frame, in which they
// are judged. So to find the end of a group, to flag what came before an alarm, or to drop the
// middle of a group costs what is touched, however many frames wait: with 100,000 of them, as a
// long pre-alarm makes, a frame costs 1.00 to 1.13 times what it does with ten (bench/Pending.cpp).
//
// Frames come from a pool that grows by slabs of 64 and gives slabs back once it is mostly unused;
// in steady state nothing is allocated. It holds no reference itself: whoever takes a frame out
// owes its buffer to the host. Owned by RecordStream; worker thread only.
class PendingFrames {
 public:
  PendingFrames();
  ~PendingFrames();  // forgets what is pending; release the buffers first
  PendingFrames(const PendingFrames&) = delete;
  PendingFrames& operator=(const PendingFrames&) = delete;

  // A frame to fill and Append; everything but Extension is reset.
  [[nodiscard]] PendingFrame* Allocate();
  // Recycles a frame that isn't pending; it is invalid afterwards.
  void Discard(PendingFrame* frame);

  // A frame to InsertAhead with what another pool's frame holds, but for its place.
  [[nodiscard]] PendingFrame* Copy(const PendingFrame& other);

  // Takes the newest place overall and within frame->Slot.
  void Append(PendingFrame* frame) { InsertAhead(nullptr, frame); }
  // Takes the place ahead of `next` in the order of arrival, and the newest one of its slot: no
  // frame of the slot may be `next` or behind it. Null is the newest place.
  void InsertAhead(PendingFrame* next, PendingFrame* frame);

  // Ends the frame's being pending; it keeps its content and is the caller's to Discard.
  void Take(PendingFrame* frame);
  // Takes and discards.
  void Erase(PendingFrame* frame);

  [[nodiscard]] PendingFrame* Front() const { return Oldest; }
  [[nodiscard]] PendingFrame* Back() const { return Newest; }
  [[nodiscard]] PendingFrame* SlotFront(int slot) const { return At(slot).Oldest; }
  [[nodiscard]] PendingFrame* SlotBack(int slot) const { return At(slot).Newest; }
  [[nodiscard]] std::size_t Size() const { return Count; }
  // Frames that the pool has memory for.
  [[nodiscard]] std::size_t Capacity() const;

 private:
  struct Slab;
  struct SlotEnds {
    PendingFrame* Oldest = nullptr;
    PendingFrame* Newest = nullptr;
    PendingFrame* NewestKey = nullptr;
  };
  [[nodiscard]] const SlotEnds& At(int slot) const { return Ends[static_cast<std::size_t>(slot)]; }
  [[nodiscard]] static Slab& SlabOf(PendingFrame* frame);
  void AddSlab();
  void UnlinkKey(PendingFrame* frame, SlotEnds& ends);

  // Slabs with room: the one used last in front, unused ones at the back; and those without.
  std::list<Slab> Open, Full;
  std::size_t InUse = 0;  // frames handed out
  std::size_t Count = 0;  // frames pending
  PendingFrame* Oldest = nullptr;
  PendingFrame* Newest = nullptr;
  std::array<SlotEnds, kSlots> Ends;
};

}  // namespace qvsvr::kelvo
