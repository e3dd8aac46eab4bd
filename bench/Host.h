#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "kelvo/host_abi.h"

namespace bench {

// What a plug-in is configured for: `count` devices with one encoder of `channels` video inputs,
// recording always. Each device gets one file with all its channels.
struct Cameras {
  int count = 1;
  int channels = 1;
  int preAlarmSeconds = 0;
};

// The provider id that a channel's frames carry.
[[nodiscard]] std::uint32_t Provider(int camera, int channel);

// How many buffers are given and not yet released. One thread gives, any thread releases.
class Outstanding {
 public:
  static void Given() { ++given; }
  static void Released();
  // Returns at once while fewer than `limit` are outstanding; otherwise waits until `kSlack` fewer
  // are, so that giver and worker don't wake each other for every frame.
  static void Throttle(std::int64_t limit);
  static constexpr std::int64_t kSlack = 2000;
  [[nodiscard]] static std::int64_t Count();

 private:
  static std::int64_t given;
};

// A copy of the bytes in a buffer of its own, freed at its release. From the first one on, all
// payloads must be such copies.
[[nodiscard]] void* OwnBuffer(const void* data, std::size_t size);

// Releases at once, where a plug-in would queue: the path of a load generator without a plug-in.
std::uint32_t NullWrite(void* block, void* reply);

// The leanest host that a plug-in can run in: a release costs it one counter. Payloads belong to
// the caller and outlive Stop, but for those of OwnBuffer. Log lines of level 50 and above go to
// standard error. One at a time.
class PluginHost {
 public:
  // Throws std::runtime_error if the module can't be loaded.
  explicit PluginHost(const std::string& module);
  ~PluginHost();
  PluginHost(const PluginHost&) = delete;
  PluginHost& operator=(const PluginHost&) = delete;

  // Load, Open and the configuration; returns when all files are open.
  void Start(const Cameras& cameras);
  // A configuration, or an action; they return when it has been applied.
  void Configure(const std::string& xml);
  void Act(const std::string& xml);
  // Returns when everything given so far has been handled.
  void Drain();
  // Close and Unload; all files are closed then.
  void Stop();

  [[nodiscard]] KelvoExport Write() const { return write; }

  // A search, on this thread. Each of its events goes to `hear`, whose result answers it.
  void Read(const std::string& request,
            const std::function<std::uint32_t(const KelvoHostRequest&)>& hear);
  // The same with its events ignored. Returns how many of the lines it logs begin with `start`.
  [[nodiscard]] int CountLines(const std::string& request, const std::string& start);

 private:
  [[nodiscard]] KelvoExport Find(const char* name) const;

  void* library = nullptr;
  KelvoExport load = nullptr, open = nullptr, read = nullptr, write = nullptr, ioctl = nullptr,
              close = nullptr, unload = nullptr;
  std::string document;  // the latest that was given
};

}  // namespace bench
