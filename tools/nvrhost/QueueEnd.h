#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>

#include "hostkit/SimHost.h"

namespace nvrhost {

inline constexpr int kDrainSeconds = 120;

// Tells when the plug-in has worked through its queue: a message without content is the last in it,
// and its buffer comes back when its turn has come.
class QueueEnd {
 public:
  explicit QueueEnd(hostkit::SimHost& toHost) : host(toHost) {
    host.onRelease = [this](const std::byte* buffer) {
      if (buffer != marker.load()) return;
      const std::lock_guard guard(lock);
      held = host.Outstanding() - 1;
      reached = true;
      changed.notify_all();
    };
  }

  // Nobody else may give anything meanwhile. False if it took too long.
  bool Wait() {
    constexpr std::string_view kNothing("<qDVR/>\0", 8);
    auto* const buffer = host.NewBuffer(kNothing);
    marker.store(buffer);
    KelvoWriteBlock block{};
    block.Length = kNothing.size();
    block.Payload = buffer;
    block.Class = KELVO_WRITE_ACTION;
    KelvoWriteReply reply{};
    host.Raw().Write(&block, &reply);
    if (reply.Accepted != 1) {
      host.Release(buffer);
      return false;
    }
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(kDrainSeconds), [this] { return reached; });
  }
  // Buffers that the plug-in held on to at that moment.
  [[nodiscard]] std::int64_t Held() const { return held; }

 private:
  hostkit::SimHost& host;
  std::atomic<const std::byte*> marker{nullptr};
  std::mutex lock;
  std::condition_variable changed;
  bool reached = false;
  std::int64_t held = 0;
};

}  // namespace nvrhost
