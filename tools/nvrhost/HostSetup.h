#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>

#include "hostkit/SimHost.h"
#include "nvrhost/Console.h"
#include "nvrhost/DriveWatch.h"
#include "nvrhost/StorageOptions.h"

namespace nvrhost {

// The plug-in that `option` names, or the one beside this program. Throws std::runtime_error when
// there is none.
[[nodiscard]] std::string FindPlugin(const std::string& option, const std::string& programPath);

// Goes to a host's working directory. EnterForRecording makes it, with at least one drive below it;
// EnterRecorded throws std::runtime_error when it holds no drives.
void EnterForRecording(const std::string& directory);
void EnterRecorded(const std::string& directory);

// Gives the plug-in the storage settings, then the bookmarks, then the full configuration, then the
// reservations. Throws std::runtime_error.
void ConfigureStorage(hostkit::SimHost& host, const StorageOptions& options,
                      const std::vector<hostkit::CameraConfig>& cameras,
                      const std::string& configuration);

// From now on SIGINT and SIGTERM only set what Interrupted tells.
void CatchInterrupts();
[[nodiscard]] bool Interrupted();

// What the plug-in tells, shown and counted. Set up before the host's Load; host and console must
// outlive it.
class Listener {
 public:
  Listener(hostkit::SimHost& simHost, Console& toConsole, std::uint32_t lowestShown,
           bool withEvents);
  // Unloads the plug-in, which speaks to this object until then.
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  std::atomic<std::uint64_t> warnings{0}, errors{0};
  DriveWatch drives;
  // Media files that events have named.
  [[nodiscard]] std::size_t Files() const;

 private:
  void TakeLog(const hostkit::SimHost::LogLine& line);
  void TakeEvent(const hostkit::SimHost::Event& event);

  hostkit::SimHost& host;
  Console& console;
  const std::uint32_t shownLevel;
  const bool showEvents;
  mutable std::mutex lock;
  std::set<std::string> files;
};

}  // namespace nvrhost
