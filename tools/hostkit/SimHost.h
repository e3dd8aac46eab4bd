#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hostkit/BufferPool.h"
#include "kelvo/host_abi.h"

namespace hostkit {

// A host process in small: loads the plug-in, hands it blocks, counts every buffer, gathers log
// lines and events. Used by nvrhost, the black-box tests and the benchmarks. The host function has
// no context argument, so one SimHost may exist at a time. Thread-safe except for Load to Unload
// themselves, which the owner calls in order.
class SimHost {
 public:
  // Loads the module and finds its eight exports; throws std::runtime_error with the reason.
  explicit SimHost(const std::string& modulePath);
  // Unloads the plug-in if it is loaded, then the module.
  ~SimHost();
  SimHost(const SimHost&) = delete;
  SimHost& operator=(const SimHost&) = delete;

  void Load();
  void Open();
  void Close();
  void Unload();

  // --- Buffers. With quarantine, set before the first buffer, a released payload is spoilt and its
  // room never given out again, so that a late read and a second release show.
  void SetQuarantine(bool on) { pool.SetQuarantine(on); }
  // A buffer starts with one reference, which an accepted Write or IOCTL takes over.
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
  // released and with its payload still whole. Set before Load.
  std::function<void(const std::byte*)> onRelease;

  // --- Blocks. Each returns whether the plug-in accepted; if not, the buffer is released here.
  // `header` is copied.
  bool WriteFrame(std::uint32_t provider, const KelvoFrameHeader& header, std::byte* buffer,
                  std::uint32_t length, std::uint32_t subCode = 0);
  // XML by Write with KELVO_WRITE_ACTION or KELVO_WRITE_PTZ.
  bool WriteXml(std::uint32_t writeClass, std::string_view xml);
  // XML by IOCTL with KELVO_IOCTL_CONFIGURATION or KELVO_IOCTL_SYSTEM.
  bool Ioctl(std::uint32_t operation, std::string_view xml);
  // A search, on this thread: what it finds comes to onSearch before this returns.
  void Read(std::string_view requestXml, std::uint32_t requestId);
  // Raw exports, for tests of the blocks themselves.
  struct Exports {
    KelvoExport Load, Open, Read, Write, Seek, IOCTL, Close, Unload;
  };
  [[nodiscard]] const Exports& Raw() const { return exports; }
  // Another exported symbol, or null.
  [[nodiscard]] void* Symbol(const char* name) const;

  // --- What the plug-in tells.
  struct LogLine {
    std::uint32_t level;
    std::string text;
  };
  struct Event {
    std::uint32_t eventClass;  // KELVO_CLASS_EVENT or KELVO_CLASS_BROADCAST
    std::string xml;
  };
  void SetLogLevel(std::uint32_t threshold) { logLevel.store(threshold); }
  // Called instead of gathering, on the plug-in's threads, with no lock held. Set before Load.
  std::function<void(const LogLine&)> onLog;
  std::function<void(const Event&)> onEvent;
  // Search traffic: the reply's status is the handler's result. Set before Load.
  std::function<std::uint32_t(const KelvoHostRequest&)> onSearch;
  [[nodiscard]] std::vector<LogLine> TakeLog();
  [[nodiscard]] std::vector<Event> TakeEvents();
  // Waits until a gathered log line (event) contains `text`; false after `timeoutMs`.
  bool WaitForLog(std::string_view text, int timeoutMs = 20'000);
  bool WaitForEvent(std::string_view text, int timeoutMs = 20'000);

 private:
  struct Module;
  static std::uint32_t HostFunction(const KelvoHostRequest* request, KelvoHostReply* reply);
  std::uint32_t Handle(const KelvoHostRequest& request, KelvoHostReply& reply);
  void NoteLog(const KelvoHostRequest& request);
  void NoteEvent(const KelvoHostRequest& request);
  bool WriteBlock(const KelvoWriteBlock& block);

  std::unique_ptr<Module> module;
  BufferPool pool;
  std::atomic<std::int64_t> outstanding{0};
  std::atomic<std::int64_t> badReleases{0};
  std::atomic<std::uint32_t> logLevel{KELVO_LOG_NO_THRESHOLD};
  Exports exports{};
  bool loaded = false;

  // Waiters for few outstanding buffers announce the count they want, so that a release signals
  // only then. Below 0: nobody waits.
  std::atomic<std::int64_t> wantedOutstanding{-1};
  std::mutex waitLock;
  std::condition_variable released;
  int waiters = 0;
  std::atomic<int> bufferWaiters{0};

  std::mutex toldLock;
  std::condition_variable told;
  std::vector<LogLine> logLines;
  std::vector<Event> events;
};

}  // namespace hostkit
