#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Clock.h"
#include "record/ChannelSlot.h"

namespace qvsvr::kelvo {

inline constexpr std::uint8_t kFlagMotion = 0x80;
inline constexpr std::uint8_t kFlagAlarm = 0x40;

// A frame whose fate is open. Owns one reference to `Buffer`, which whoever removes the frame
// releases. The links belong to PendingFrames.
struct PendingFrame {
  qv::kelvo::UtcMs Time = 0;  // capture time
  void* Buffer = nullptr;     // the host's counted buffer
  std::uint32_t Provider = 0;
  std::uint32_t Size = 0;  // payload bytes
  std::uint8_t Slot = 0;   // below kSlots
  std::uint8_t Type = 0;   // 0 audio, 1 I, 2 P, 3 B
  std::uint8_t Flags = 0;
  std::uint8_t ExtensionLength = 0;
  bool IsPes = false;  // Buffer holds a PES packet
  bool Ptz = false;    // the camera was moving

  PendingFrame* Older = nullptr;  // arrival order over all slots
  PendingFrame* Newer = nullptr;
  PendingFrame* SlotOlder = nullptr;  // arrival order within the slot
  PendingFrame* SlotNewer = nullptr;
  PendingFrame* NextKey = nullptr;  // on types 0 and 1: the next such frame of the slot

  std::array<std::uint8_t, 128> Extension;  // ExtensionLength bytes (at most 128) are set

  // Types 0 and 1 stand alone; the others depend on what came before.
  [[nodiscard]] bool IsKey() const { return Type < 2; }
};

// The undecided frames of a stream in arrival order, with each slot's own order beside it, so that
// no operation here costs more than what it touches. Frames come from a pool that keeps its memory
// while frames are pending. One thread.
class PendingFrames {
 public:
  PendingFrames();
  ~PendingFrames();  // forgets what is pending; release the buffers first
  PendingFrames(const PendingFrames&) = delete;
  PendingFrames& operator=(const PendingFrames&) = delete;

  // A frame to fill and Append (or Discard); everything but Extension is reset.
  [[nodiscard]] PendingFrame* Allocate();
  void Discard(PendingFrame* frame);

  // Takes the newest place overall and within frame->Slot.
  void Append(PendingFrame* frame);

  // Unlinks and recycles; `frame` is invalid afterwards.
  void Erase(PendingFrame* frame);

  [[nodiscard]] PendingFrame* Front() const;
  [[nodiscard]] PendingFrame* Back() const;
  [[nodiscard]] PendingFrame* SlotFront(int slot) const;
  [[nodiscard]] PendingFrame* SlotBack(int slot) const;
  [[nodiscard]] std::size_t Size() const;

 private:
  // (pool and ends)
};

}  // namespace qvsvr::kelvo
