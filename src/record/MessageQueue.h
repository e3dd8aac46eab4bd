#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {

// One block from the host on its way to the worker; stands for one reference to `Payload`, which
// whoever takes the message out owes to the host.
struct RecordMessage {
  std::uint32_t Type = 0;  // 0 from Write, otherwise the IOCTL operation
  std::uint32_t Length = 0;
  void* Payload = nullptr;
  std::uint32_t Source = 0;   // provider id of a frame; a module id for XML
  std::uint32_t Class = 0;    // KELVO_WRITE_..., 0 from IOCTL
  std::uint32_t SubCode = 0;  // KELVO_WRITE_SUB_PES or 0
  KelvoFrameHeader Header{};
  std::uint32_t QueuedMs = 0;  // monotonic, wraps; when it came, or a little before
};
static_assert(sizeof(RecordMessage) == 184);

// The memory of RecordQueue: a first-in first-out queue of messages by value, unbounded. It lives
// in a chain of blocks of 32 messages, so that a push never moves what is queued. Emptied blocks
// are kept for later pushes: in steady state nothing is allocated, and what a burst has taken goes
// back once a minute (Shrink). The library's deque would take and free a block every few messages.
// Not locked: RecordQueue's lock is held.
class MessageQueue {
  struct Block;

 public:
  // Memory that Shrink took out of the queue; the destructor frees it.
  class SpareBlocks {
   public:
    SpareBlocks() = default;
    SpareBlocks(SpareBlocks&& other) noexcept : First(other.First) { other.First = nullptr; }
    SpareBlocks& operator=(SpareBlocks&& other) noexcept {
      std::swap(First, other.First);
      return *this;
    }
    ~SpareBlocks();

   private:
    friend class MessageQueue;
    Block* First = nullptr;
  };

  MessageQueue();
  ~MessageQueue();
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  // Returns the message as queued, which stays there until it is popped. Throws std::bad_alloc,
  // with nothing queued, when it needs a block and can't get one.
  RecordMessage& Push(const RecordMessage& message);
  // Only when not Empty.
  [[nodiscard]] RecordMessage Pop();
  // The oldest one. Only when not Empty.
  [[nodiscard]] const RecordMessage& Front() const;
  [[nodiscard]] bool Empty() const { return Count == 0; }
  [[nodiscard]] std::size_t Size() const { return Count; }
  // Messages that the blocks at hand can take, the queued ones included.
  [[nodiscard]] std::size_t Capacity() const;

  // Gives memory back after a burst: when no more than the larger of half the capacity and 8
  // messages are queued, and that is under the capacity, the queue keeps only the blocks that its
  // messages need (one at least). The rest is returned, to be freed where nobody waits for it.
  [[nodiscard]] SpareBlocks Shrink();

 private:
  static constexpr std::size_t kBlockMessages = 32;

  Block* Head;               // holds the oldest message, from HeadUsed on
  Block* Tail;               // takes the next message, at TailUsed
  Block* Spare = nullptr;    // emptied blocks
  std::size_t HeadUsed = 0;  // places of Head that were popped
  std::size_t TailUsed = 0;  // places of Tail that were pushed
  std::size_t Blocks = 1;    // all, spare ones included
  std::size_t Count = 0;
};

}  // namespace qvsvr::kelvo
