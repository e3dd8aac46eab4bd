#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "media/IndexRepair.h"
#include "platform/Platform.h"
#include "platform/WriteBack.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {

// Mends in the background what power cuts did to recordings (media/IndexRepair.h): once for each
// volume the recordings of the two days before its last one, then what searches report. A thread of
// low priority; nothing is touched that is being written, or that a search may have chosen frames
// of. Any thread, but Begin and Stop belong to one.
class Healer {
 public:
  // Borrows both for its life.
  Healer(qv::kelvo::Platform& system, qv::kelvo::WriteBack& disk);
  ~Healer() { Stop(); }
  Healer(const Healer&) = delete;
  Healer& operator=(const Healer&) = delete;

  // Takes the volumes that it hasn't had yet, as they are now: what is recorded from now on doesn't
  // count as their last recording.
  void Begin(const std::vector<std::string>& volumes);

  // Ends after the file at hand, and waits for it. Nothing is taken from then on.
  void Stop();

  // A recording that a search couldn't read.
  void NoteUnreadable(const std::string& path);

  // While the result lives no recording is exchanged whose name lies in the range, in seconds since
  // 1970. Waits for an exchange that is under way. Outlived by the healer.
  [[nodiscard]] std::shared_ptr<const void> Hold(std::int64_t first, std::int64_t last);

 private:
  struct Range {
    std::int64_t first, last;
  };
  struct Volume {
    std::string root;
    qv::kelvo::UtcMs lastHour;  // of its recordings
  };
  struct Tally {
    std::size_t looked = 0, healed = 0;
  };

  void StartThread();  // under the lock
  void Run();
  void HealVolume(const Volume& volume);
  // Looks into all recordings if one looks damaged, or if `wholly` asks for it. Returns whether one
  // does.
  [[nodiscard]] bool HealHour(const std::string& directory, bool wholly, Tally& tally);
  void Heal(const std::string& path, Tally& tally);
  [[nodiscard]] bool Exchange(const std::string& path, const std::function<void()>& exchange);
  [[nodiscard]] std::string SiblingOf(const std::string& path);
  [[nodiscard]] bool Stopping();

  qv::kelvo::Platform& platform;
  qv::kelvo::WriteBack& writing;

  std::set<std::string> known;  // roots of volumes that were taken
  std::mutex mutex;
  std::condition_variable wake;
  bool stopping = false;
  std::vector<Volume> volumes;     // still to be looked at
  std::set<std::string> reported;  // recordings still to be looked at
  std::set<std::string> waiting;   // those that were in use
  std::set<std::string> hopeless;  // those that couldn't be mended
  std::list<Range> held;
  std::thread thread;
  std::uint64_t threadId = 0;  // once it runs
};

}  // namespace qvsvr::kelvo
