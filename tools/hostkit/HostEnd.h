#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "hostkit/BufferPool.h"
#include "kelvo/host_abi.h"

namespace hostkit {

// The host's end of the link to a plug-in: answers what comes by the host function, counts every
// buffer, gathers log lines and events. The host function has no context argument, so one HostEnd
// may exist at a time; a second one throws std::runtime_error. Any thread.
class HostEnd {
 public:
  HostEnd();
  virtual ~HostEnd();
  HostEnd(const HostEnd&) = delete;
  HostEnd& operator=(const HostEnd&) = delete;

  static std::uint32_t HostFunction(const KelvoHostRequest* request, KelvoHostReply* reply);

  // --- Buffers. With quarantine, set before the first buffer, a released payload is spoilt and its
  // room never given out again, so that a late read and a second release show.
  void SetQuarantine(bool on) { pool.SetQuarantine(on); }
  // A buffer starts with one reference, which an accepted block takes over.
  // The room comes from a pool; content is up to the caller.
  [[nodiscard]] std::byte* NewBuffer(std::size_t size);
  [[nodiscard]] std::byte* NewBuffer(std::string_view content);
  // Gives back a buffer that the plug-in didn't accept, as the plug-in's release would.
  void Release(void* buffer);
  // Adds a reference: the same payload can be handed in again.
  void AddReference(void* buffer);
  [[nodiscard]] std::int64_t Outstanding() const { return outstanding.load(); }
  // Releases of buffers that held no reference, or that this host never made.
  [[nodiscard]] std::int64_t BadReleases() const { return badReleases.load(); }
  // Blocks until at most `count` buffers are outstanding (the brake of a load generator), or
  // `timeoutMs` has passed; returns whether it is so.
  bool WaitOutstanding(std::int64_t count, int timeoutMs = 60'000);

  // Blocks until this buffer holds no reference any more; in quarantine only.
  bool WaitReleased(const void* buffer, int timeoutMs = 60'000);
  // Called on the plug-in's threads as a buffer loses its last reference, before that counts as
  // released and with its payload still whole. Set before the plug-in runs, as all that follow.
  std::function<void(const std::byte*)> onRelease;

  // --- What the plug-in tells.
  struct LogLine {
    std::uint32_t level;
    std::string text;
  };
  struct Event {
    std::uint32_t eventClass;  // KELVO_CLASS_EVENT or KELVO_CLASS_BROADCAST
    std::string text;          // XML
  };
  void SetThreshold(std::uint32_t level) { threshold.store(level); }
  // Called instead of gathering, on the plug-in's threads, with no lock held.
  std::function<void(const LogLine&)> onLog;
  std::function<void(const Event&)> onEvent;
  // Search traffic: the reply's status is the handler's result.
  std::function<std::uint32_t(const KelvoHostRequest&)> onSearch;
  [[nodiscard]] std::vector<LogLine> Lines() const;
  [[nodiscard]] std::vector<Event> Events() const;
  // Lines that contain `text`, at any level or at one; paths compare whatever their separators.
  [[nodiscard]] std::size_t CountLines(std::string_view text) const;
  [[nodiscard]] std::size_t CountLines(std::uint32_t level, std::string_view text) const;
  void ForgetTraffic();  // lines and events; buffers stay counted
  // Waits until a gathered log line contains `text`; false after `timeoutMs`.
  bool WaitForLine(std::string_view text, int timeoutMs = 20'000);

 protected:
  // Answers one request; the result is the host function's.
  virtual std::uint32_t Handle(const KelvoHostRequest& request, KelvoHostReply& reply);

 private:
  void NoteLog(const KelvoHostRequest& request);
  void NoteEvent(const KelvoHostRequest& request);

  BufferPool pool;
  std::atomic<std::int64_t> outstanding{0};
  std::atomic<std::int64_t> badReleases{0};
  std::atomic<std::uint32_t> threshold{KELVO_LOG_NO_THRESHOLD};

  // Waiters for few outstanding buffers announce the count they want, so that a release signals
  // only then. Below 0: nobody waits.
  std::atomic<std::int64_t> wantedOutstanding{-1};
  std::mutex waitLock;
  std::condition_variable released;
  int waiters = 0;
  std::atomic<int> bufferWaiters{0};

  mutable std::mutex toldLock;
  std::condition_variable told;
  std::vector<LogLine> lines;
  std::vector<Event> events;
};

}  // namespace hostkit
