#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {

// One block from the host on its way to the worker; owns one reference to `Payload`.
struct RecordMessage {
  std::uint32_t Type = 0;  // 0 from Write, otherwise the IOCTL operation
  std::uint32_t Length = 0;
  void* Payload = nullptr;
  std::uint32_t Source = 0;
  std::uint32_t Class = 0;
  std::uint32_t SubCode = 0;
  KelvoFrameHeader Header{};
};
static_assert(sizeof(RecordMessage) == 184);

// A first-in first-out queue of messages by value, unbounded. Grows by blocks, so that a push never
// moves what is queued. Not locked.
class MessageQueue {
 public:
  MessageQueue();
  ~MessageQueue();
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  void Push(const RecordMessage& message);
  // Only when not Empty.
  [[nodiscard]] RecordMessage Pop();
  [[nodiscard]] bool Empty() const { return Count == 0; }
  [[nodiscard]] std::size_t Size() const { return Count; }
  // Messages that fit without another allocation.
  [[nodiscard]] std::size_t Capacity() const;

  // Gives memory back after a burst: when no more than the larger of half the capacity and 8
  // messages are queued, and that is under the capacity, the queue moves to one of that size.
  void Shrink();

 private:
  // (ring of blocks)
  std::size_t Count = 0;
};

}  // namespace qvsvr::kelvo
