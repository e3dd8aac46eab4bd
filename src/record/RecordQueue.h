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

// Watches how long messages wait for the worker. To be used under the queue's lock.
class QueueAge {
 public:
  enum class Change { None, Late, InTime };

  // Takes the age of the oldest message; `last` when no other is queued. Tells when messages begin
  // to come late and when that is over.
  [[nodiscard]] Change Note(std::uint32_t ageMs, bool last);

 private:
  bool late = false;
};

// The way from the host's threads to the worker. It may outlive the record manager that listens at
// its end, so that a block that comes at any moment finds it there, and closed when nobody listens.
class RecordQueue {
 public:
  // Opens it for a worker; `time` is borrowed until End.
  void Begin(qv::kelvo::Clock& time);
  // Closes it for good; what is left in it was taken out before.
  void End();

  // False when it is closed, with no reference taken; otherwise the queue owns the payload's
  // reference. Any thread. Throws std::bad_alloc, with no reference taken, when memory runs out.
  // While frames keep coming a frame may wait 10 ms for the worker, which spares the caller the
  // cost of waking it.
  bool Enqueue(const RecordMessage& message);

  // Closes it for the time being, or opens it again. Any thread.
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
  // Waits for the next message; false when the worker has to end. With `shrink`, when it is taken
  // at that time or later, memory that a burst has left goes to `surplus`.
  [[nodiscard]] bool Next(Taken& taken, std::int64_t shrinkNs);

  // Puts a message back that came too late.
  void PutBack(const RecordMessage& message);
  // Takes what is left after Stop; false when nothing is.
  [[nodiscard]] bool TakeLeft(RecordMessage& message);
  [[nodiscard]] std::size_t FramesLeft();

  [[nodiscard]] static bool IsFrame(const RecordMessage& message);

 private:
  RecordMessage Pop();
  [[nodiscard]] QueueAge::Change LookAtAge();

  // What a block from the host touches, close together.
  alignas(64) std::mutex lock;  // guards what follows, up to `queue`
  std::atomic<bool> stopping{true};
  bool dozing = false;  // the worker looks at the queue again by itself
  bool closed = true;
  QueueAge age;
  std::uint32_t queuedMs = 0;  // what messages are stamped with
  std::size_t frames = 0;
  qv::kelvo::Clock* clock = nullptr;
  std::optional<MessageQueue> queue;  // from Begin to End
  std::condition_variable signal;
  int idleDozes = std::numeric_limits<int>::max();  // since the last frame
};

}  // namespace qvsvr::kelvo
