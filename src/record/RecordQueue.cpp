#include "record/RecordQueue.h"

#include <chrono>

#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint32_t kLateMs = 10'000;
constexpr std::uint32_t kInTimeMs = 1'000;

// Waking a sleeping thread costs the host several microseconds. So while frames come in, the worker
// dozes instead of sleeping: it looks at the queue by itself, and a frame wakes it only when many
// have gathered. Other messages always wake it. With no frame for a second it sleeps.
constexpr std::chrono::nanoseconds kDoze = std::chrono::milliseconds(10);
constexpr std::chrono::nanoseconds kSleep = std::chrono::minutes(1);
constexpr int kDozesToSleep = 100;
constexpr std::size_t kDozingLimit = 64;

// Messages are stamped with the time of the last look at the clock, which spares the host most of
// them: the worker looks whenever it takes one, and each message that finds the queue empty does,
// and each so many others, for the worker may be held up.
constexpr std::size_t kLookEvery = 256;

std::uint32_t Milliseconds(std::int64_t steadyNs) {
  return static_cast<std::uint32_t>(steadyNs / 1'000'000);
}

void Tell(QueueAge::Change change) {
  if (change == QueueAge::Change::Late) {
    LogPrintf(LogError, "recording is late: frames have waited for more than 10 s");
  } else if (change == QueueAge::Change::InTime) {
    LogPrintf(LogError, "recording is in time again");
  }
}

}  // namespace

QueueAge::Change QueueAge::Note(std::uint32_t ageMs, bool last) {
  if (late ? ageMs >= kInTimeMs && !last : ageMs <= kLateMs) return Change::None;
  late = !late;
  return late ? Change::Late : Change::InTime;
}

bool RecordQueue::IsFrame(const RecordMessage& message) {
  return message.Type == 0 && (message.Class & KELVO_WRITE_FRAME) != 0;
}

void RecordQueue::Begin(qv::kelvo::Clock& time) {
  const std::lock_guard guard(lock);
  clock = &time;
  queue.emplace();
  age = {};
  idleDozes = std::numeric_limits<int>::max();
  stopping.store(false);
  closed = false;
}

void RecordQueue::End() {
  const std::lock_guard guard(lock);
  closed = true;
  clock = nullptr;
  queue.reset();
}

bool RecordQueue::Enqueue(const RecordMessage& message) {
  bool wake = true;
  auto change = QueueAge::Change::None;
  {
    const std::lock_guard guard(lock);
    if (closed) return false;
    if (queue->Size() % kLookEvery == 0) change = LookAtAge();
    queue->Push(message).QueuedMs = queuedMs;
    if (IsFrame(message)) ++frames;
    // A worker that dozes comes by itself; one that is at work isn't waiting, and the signal costs
    // nothing then.
    wake = !dozing || !IsFrame(message) || queue->Size() == kDozingLimit;
  }
  // After the lock, so that the woken worker finds it free.
  if (wake) signal.notify_one();
  if (change != QueueAge::Change::None) Tell(change);
  return true;
}

// Under the lock, on a host's thread: a worker that hangs in a system call can't tell that it does.
QueueAge::Change RecordQueue::LookAtAge() {
  queuedMs = Milliseconds(clock->SteadyNs());
  if (queue->Empty()) return QueueAge::Change::None;
  return age.Note(queuedMs - queue->Front().QueuedMs, false);
}

void RecordQueue::SetClosed(bool close) {
  const std::lock_guard guard(lock);
  closed = close || stopping.load();
}

void RecordQueue::Stop() {
  {
    // A worker that has just found the flag clear holds the lock until it waits: so the signal
    // comes after that.
    const std::lock_guard guard(lock);
    stopping.store(true);
    closed = true;
  }
  signal.notify_all();
}

bool RecordQueue::Next(Taken& taken, std::int64_t shrinkNs) {
  taken.surplus = {};
  std::unique_lock guard(lock);
  while (!stopping.load() && queue->Empty()) {
    dozing = idleDozes < kDozesToSleep;
    if (dozing) ++idleDozes;
    signal.wait_for(guard, dozing ? kDoze : kSleep);
  }
  dozing = false;
  if (stopping.load()) return false;
  taken.steadyNs = clock->SteadyNs();
  queuedMs = Milliseconds(taken.steadyNs);
  taken.message = Pop();
  if (IsFrame(taken.message)) idleDozes = 0;
  taken.left = queue->Size();
  taken.oldestMs = queue->Empty() ? 0 : queuedMs - queue->Front().QueuedMs;
  const auto change = age.Note(queuedMs - taken.message.QueuedMs, queue->Empty());
  if (taken.steadyNs >= shrinkNs) taken.surplus = queue->Shrink();
  guard.unlock();
  Tell(change);
  return true;
}

// Under the lock.
RecordMessage RecordQueue::Pop() {
  RecordMessage message = queue->Pop();
  if (IsFrame(message)) --frames;
  return message;
}

void RecordQueue::PutBack(const RecordMessage& message) {
  const std::lock_guard guard(lock);
  queue->Push(message);
  if (IsFrame(message)) ++frames;
}

bool RecordQueue::TakeLeft(RecordMessage& message) {
  const std::lock_guard guard(lock);
  if (queue->Empty()) return false;
  message = Pop();
  return true;
}

std::size_t RecordQueue::FramesLeft() {
  const std::lock_guard guard(lock);
  return frames;
}

}  // namespace qvsvr::kelvo
