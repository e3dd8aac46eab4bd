#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>

#include "platform/Clock.h"
#include "record/MessageQueue.h"

namespace qvsvr::kelvo {

// Watches how long messages wait for the worker, so that an operator hears of a disk that doesn't
// keep up before memory runs out: recording is late from ten seconds on, and in time again once a
// message has waited for less than one, or is the last. To be used under the queue's lock.
class QueueAge {
 public:
  enum class Change { None, Late, InTime };

  // Takes the age of the oldest message; `last` when no other is queued. Tells when messages begin
  // to come late and when that is over.
  [[nodiscard]] Change Note(std::uint32_t ageMs, bool last);

 private:
  bool late = false;
};

// The way from the host's threads to the worker: blocks in the order of their arrival, under one
// lock. Write runs on the host's capture threads, so its cost is the host's: 35 ns a call when they
// come without a pause, 0.35 us at one a millisecond. A queue of one node per message, or a wake-up
// per message, costs a multiple of that; so messages lie in blocks (MessageQueue), and while frames
// keep coming the worker looks by itself every 10 ms instead of being woken.
//
// It is unbounded: what to drop when the disk falls behind is nobody's to choose here, and the host
// sees its own buffers pile up. One queue lives as long as the process (shell/exports) and serves
// one record manager after the other, so that a block that comes at any moment finds it there, and
// closed when nobody listens. Its `stopping` is the plug-in's word for "stop": searches ask it,
// too.
class RecordQueue {
 public:
  // Opens it for a record manager; `time` is borrowed until End.
  void Begin(qv::kelvo::Clock& time);
  // Closes it until the next Begin and frees its memory; what was left in it was taken out before.
  void End();

  // False when it is closed, with no reference taken; otherwise the queue owns the payload's
  // reference. Any thread. Throws std::bad_alloc, with no reference taken, when memory runs out.
  // While frames keep coming a frame may wait 10 ms for the worker, which spares the caller the
  // cost of waking it.
  bool Enqueue(const RecordMessage& message);

  // Closes it for the time being, or opens it again unless it was stopped. Any thread.
  void SetClosed(bool closed);
  // Closes it and makes the worker end; doesn't wait. Any thread.
  void Stop();
  [[nodiscard]] bool IsStopping() const { return stopping.load(); }

  // What the worker gets with a message.
  struct Taken {
    RecordMessage message;
    std::int64_t steadyNs = 0;   // when it was taken
    std::size_t left = 0;        // messages behind it
    std::uint32_t oldestMs = 0;  // how long the first of them has waited
    MessageQueue::SpareBlocks surplus;
  };
  // Waits for the next message; false when the worker has to end, whatever is still queued. When
  // the message is taken at `shrinkNs` (steady clock) or later, memory that a burst has left goes
  // to `surplus`, which frees it at the next call, outside the lock. The worker only.
  [[nodiscard]] bool Next(Taken& taken, std::int64_t shrinkNs);

  // Puts a message back that was taken after the stop: behind the others, which nobody reads in
  // order any more. Its reference is the queue's again.
  void PutBack(const RecordMessage& message);
  // Takes what is left after Stop; false when nothing is.
  [[nodiscard]] bool TakeLeft(RecordMessage& message);
  // Frames among what is queued.
  [[nodiscard]] std::size_t FramesLeft();

  // Whether the payload is media; else it is XML.
  [[nodiscard]] static bool IsFrame(const RecordMessage& message);

 private:
  RecordMessage Pop();
  [[nodiscard]] QueueAge::Change LookAtAge();

  // What a block from the host touches, close together.
  alignas(64) std::mutex lock;  // guards all of it; `stopping` is read without it
  std::atomic<bool> stopping{true};
  bool dozing = false;  // the worker looks at the queue again by itself
  bool closed = true;
  QueueAge age;
  std::uint32_t queuedMs = 0;         // what messages are stamped with
  std::size_t frames = 0;             // queued
  qv::kelvo::Clock* clock = nullptr;  // from Begin to End
  std::optional<MessageQueue> queue;  // from Begin to End
  std::condition_variable signal;
  int idleDozes = std::numeric_limits<int>::max();  // since the last frame
};

}  // namespace qvsvr::kelvo
