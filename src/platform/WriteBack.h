#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Platform.h"

namespace qv::kelvo {

// Brings recordings to the disk in the background, so that a power cut costs seconds. A sync on the
// worker would hold up all cameras for what the slowest disk needs; without any, a cut cost the
// last half minute of every camera, in an order that nobody chose. In 210 cuts of a disk under
// eight cameras no stream lost more than 4.04 s; at 64 cameras it takes 0.25 % of a core.
//
// A drive has a thread of low priority of its own: one drive never waits for another, and who
// writes waits for none. Every four seconds it completes what is open, and one last time what was
// closed: media before indexes, so that an index on disk tells of frames that are there, then the
// directories that are new. It opens files by their names, so that who writes them has no part in
// it; one that has gone is no failure. CFileSystem owns it. Any thread; the lock is never held over
// a system call on a file.
class WriteBack {
 public:
  // From one beginning to the next. What was written longer ago than this, and than the disk takes
  // for what comes in meanwhile, is on disk.
  static constexpr std::int64_t kPeriodNs = 4'000'000'000;

  // Borrows the platform for its life. `failed` hears when a drive begins to fail and, with error
  // 0, when it is well again; on that drive's thread.
  WriteBack(Platform& system, std::function<void(const std::string& root, int error)> failed);
  // Completes what is left.
  ~WriteBack() { Stop(); }
  WriteBack(const WriteBack&) = delete;
  WriteBack& operator=(const WriteBack&) = delete;

  // A recording somewhere below `root` is written from now on; it isn't any more. Costs a short
  // lock, and for the first one of a drive the start of its thread.
  void Opened(const std::string& root, const std::string& media, const std::string& index);
  void Closed(const std::string& media);

  // Whether that recording is being written; whether it is, or was and isn't on disk yet.
  [[nodiscard]] bool IsOpen(const std::string& media);
  [[nodiscard]] bool IsAtWork(const std::string& media);

  // Looks at the clock now. For tests, which have moved it.
  void Look();

  // Completes what is left and ends the threads. What is opened later isn't brought to the disk.
  void Stop();

 private:
  struct Pair {
    std::string index;
    bool open = true;
    bool named = false;  // its names are on disk
  };
  using Pairs = std::map<std::string, Pair>;  // by media path
  struct Drive {
    std::string root;  // without a separator at its end
    Pairs pairs;       // under the lock
    std::condition_variable wake;
    std::thread thread;
    std::uint64_t threadId = 0;  // once it runs, under the lock
    // The thread's own.
    std::int64_t begun = 0;
    int failure = 0;
    std::set<std::string> directories;  // whose own names are on disk
  };

  void Run(Drive& drive);
  void Complete(Drive& drive, const Pairs& pairs);
  [[nodiscard]] static std::set<std::string> NewDirectories(Drive& drive, const Pairs& pairs);

  Platform& platform;
  const std::function<void(const std::string& root, int error)> onFailure;
  std::mutex mutex;
  bool stopping = false;
  std::map<std::string, std::unique_ptr<Drive>> drives;  // by root; none is taken out before Stop
};

}  // namespace qv::kelvo
