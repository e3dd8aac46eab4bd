#include "hostkit/HostEnd.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace hostkit {
namespace {

// The host function carries no context.
std::atomic<HostEnd*> current{nullptr};

std::string_view PayloadText(const KelvoHostRequest& request) {
  if (request.Payload == nullptr) return {};
  std::string_view text(static_cast<const char*>(request.Payload), request.Length);
  if (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  return text;
}

std::chrono::steady_clock::time_point Deadline(int timeoutMs) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
}

// Paths compare whatever their separators are.
bool Contains(std::string_view text, std::string_view part) {
  const auto slashed = [](char c) { return c == '\\' ? '/' : c; };
  const auto same = [&](char a, char b) { return slashed(a) == slashed(b); };
  return part.empty() ||
         std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

}  // namespace

HostEnd::HostEnd() {
  HostEnd* nobody = nullptr;
  if (!current.compare_exchange_strong(nobody, this)) {
    throw std::runtime_error("there is a simulated host already");
  }
}

HostEnd::~HostEnd() {
  current.store(nullptr);
}

std::byte* HostEnd::NewBuffer(std::size_t size) {
  auto* buffer = pool.Take(size);
  outstanding.fetch_add(1);
  return buffer;
}

std::byte* HostEnd::NewBuffer(std::string_view content) {
  auto* buffer = NewBuffer(content.size());
  std::memcpy(buffer, content.data(), content.size());
  return buffer;
}

void HostEnd::Release(void* buffer) {
  switch (pool.Release(buffer, onRelease)) {
    case BufferPool::Released::HeldByOthers:
      return;
    case BufferPool::Released::Unknown:
      badReleases.fetch_add(1);
      return;
    case BufferPool::Released::LastReference:
      break;
  }
  if (outstanding.fetch_sub(1) - 1 <= wantedOutstanding.load() || bufferWaiters.load() > 0) {
    std::lock_guard guard(waitLock);
    released.notify_all();
  }
}

void HostEnd::AddReference(void* buffer) {
  BufferPool::AddReference(buffer);
}

bool HostEnd::WaitOutstanding(std::int64_t count, int timeoutMs) {
  if (outstanding.load() <= count) return true;
  std::unique_lock guard(waitLock);
  ++waiters;
  wantedOutstanding.store(std::max(wantedOutstanding.load(), count));
  const bool reached =
      released.wait_until(guard, Deadline(timeoutMs), [&] { return outstanding.load() <= count; });
  if (--waiters == 0) wantedOutstanding.store(-1);
  return reached;
}

bool HostEnd::WaitReleased(const void* buffer, int timeoutMs) {
  std::unique_lock guard(waitLock);
  bufferWaiters.fetch_add(1);
  const bool free =
      released.wait_until(guard, Deadline(timeoutMs), [&] { return BufferPool::IsFree(buffer); });
  bufferWaiters.fetch_sub(1);
  return free;
}

std::vector<HostEnd::LogLine> HostEnd::Lines() const {
  const std::lock_guard guard(toldLock);
  return lines;
}

std::vector<HostEnd::Event> HostEnd::Events() const {
  const std::lock_guard guard(toldLock);
  return events;
}

std::size_t HostEnd::CountLines(std::string_view text) const {
  const std::lock_guard guard(toldLock);
  return static_cast<std::size_t>(
      std::ranges::count_if(lines, [&](const LogLine& line) { return Contains(line.text, text); }));
}

std::size_t HostEnd::CountLines(std::uint32_t level, std::string_view text) const {
  const std::lock_guard guard(toldLock);
  return static_cast<std::size_t>(std::ranges::count_if(lines, [&](const LogLine& line) {
    return line.level == level && Contains(line.text, text);
  }));
}

void HostEnd::ForgetTraffic() {
  const std::lock_guard guard(toldLock);
  lines.clear();
  events.clear();
}

bool HostEnd::WaitForLine(std::string_view text, int timeoutMs) {
  std::unique_lock guard(toldLock);
  return told.wait_until(guard, Deadline(timeoutMs), [&] {
    return std::ranges::any_of(lines,
                               [&](const LogLine& line) { return Contains(line.text, text); });
  });
}

std::uint32_t HostEnd::HostFunction(const KelvoHostRequest* request, KelvoHostReply* reply) {
  HostEnd* host = current.load(std::memory_order_acquire);
  if (host == nullptr || request == nullptr || reply == nullptr) return 1;
  return host->Handle(*request, *reply);
}

std::uint32_t HostEnd::Handle(const KelvoHostRequest& request, KelvoHostReply& reply) {
  switch (request.Class) {
    case KELVO_CLASS_RELEASE:
      Release(const_cast<void*>(request.Payload));
      return 0;
    case KELVO_CLASS_LOG:
      if (request.SubCode == KELVO_SUB_LOG_LEVEL) {
        reply.Status = threshold.load(std::memory_order_relaxed);
      } else {
        NoteLog(request);
      }
      return 0;
    case KELVO_CLASS_EVENT:
    case KELVO_CLASS_BROADCAST:
      NoteEvent(request);
      return 0;
    case KELVO_CLASS_SEARCH:
      if (onSearch) reply.Status = onSearch(request);
      return 0;
    default:
      return 1;
  }
}

void HostEnd::NoteLog(const KelvoHostRequest& request) {
  LogLine line{request.u.Log.Level, std::string(PayloadText(request))};
  if (onLog) {
    onLog(line);
    return;
  }
  std::lock_guard guard(toldLock);
  lines.push_back(std::move(line));
  told.notify_all();
}

void HostEnd::NoteEvent(const KelvoHostRequest& request) {
  Event event{request.Class, std::string(PayloadText(request))};
  if (onEvent) {
    onEvent(event);
    return;
  }
  std::lock_guard guard(toldLock);
  events.push_back(std::move(event));
}

}  // namespace hostkit
