#include "record/MessageQueue.h"

#include <algorithm>
#include <utility>

namespace qvsvr::kelvo {
namespace {

constexpr std::size_t kLeastThreshold = 8;

}  // namespace

struct MessageQueue::Block {
  std::array<RecordMessage, kBlockMessages> Messages;
  Block* Next = nullptr;
};

MessageQueue::SpareBlocks::~SpareBlocks() {
  while (First != nullptr) delete std::exchange(First, First->Next);
}

MessageQueue::MessageQueue() : Head(new Block), Tail(Head) {}

MessageQueue::~MessageQueue() {
  SpareBlocks spare;
  spare.First = Spare;
  SpareBlocks queued;
  queued.First = Head;
}

RecordMessage& MessageQueue::Push(const RecordMessage& message) {
  if (TailUsed == kBlockMessages) {
    Block* block = Spare;
    if (block != nullptr) {
      Spare = std::exchange(block->Next, nullptr);
    } else {
      block = new Block;
      ++Blocks;
    }
    Tail->Next = block;
    Tail = block;
    TailUsed = 0;
  }
  ++Count;
  return Tail->Messages[TailUsed++] = message;
}

const RecordMessage& MessageQueue::Front() const {
  return Head->Messages[HeadUsed];
}

RecordMessage MessageQueue::Pop() {
  const RecordMessage message = Head->Messages[HeadUsed++];
  --Count;
  if (Count == 0) {
    // Head and Tail are the same block here, since a block is only chained for a message in it.
    HeadUsed = 0;
    TailUsed = 0;
  } else if (HeadUsed == kBlockMessages) {
    Block* emptied = std::exchange(Head, Head->Next);
    emptied->Next = std::exchange(Spare, emptied);
    HeadUsed = 0;
  }
  return message;
}

// The popped places of the first block are lost until it is empty.
std::size_t MessageQueue::Capacity() const {
  return Blocks * kBlockMessages - HeadUsed;
}

// Spare blocks go all at once: a queue that is half empty after a minute won't need them soon.
MessageQueue::SpareBlocks MessageQueue::Shrink() {
  SpareBlocks surplus;
  const std::size_t capacity = Capacity();
  const std::size_t threshold = std::max(capacity / 2, kLeastThreshold);
  if (Count > threshold || threshold >= capacity) return surplus;
  surplus.First = std::exchange(Spare, nullptr);
  Blocks = (HeadUsed + Count + kBlockMessages - 1) / kBlockMessages;
  Blocks = std::max<std::size_t>(Blocks, 1);
  return surplus;
}

}  // namespace qvsvr::kelvo
