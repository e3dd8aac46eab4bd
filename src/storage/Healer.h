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
// volume the recordings of the two days before its last one, then what searches report.
//
// What a cut damages is an index behind its media. It is mended here and not by the reader, whose
// rules for a damaged index are fixed and which would have to repeat it at each search. The new
// index is made beside the old one from the frames' own headers, and takes its place only if no
// frame is lost by that. The days count from a volume's last recording, not from now: a drive may
// have lain idle since the cut. A look at head and end finds most damage; only recordings beside a
// damaged one, or in the hour ahead of it, are read through.
//
// It never touches what is being written (WriteBack tells), nor, while a search lasts, what that
// search may have chosen frames of: those wait until it is over. What can't be mended is
// remembered, so that each search doesn't begin it again. It reads with low priority, and a stop
// waits for the file at hand only. Owned by CFileSystem. Any thread, but Begin and Stop belong to
// one.
class Healer {
 public:
  // Borrows both for its life.
  Healer(qv::kelvo::Platform& system, qv::kelvo::WriteBack& disk);
  ~Healer() { Stop(); }
  Healer(const Healer&) = delete;
  Healer& operator=(const Healer&) = delete;

  // Takes the volumes that it hasn't had yet, as they are now: what is recorded from now on doesn't
  // count as their last recording. Looks for that recording at once, on the calling thread.
  void Begin(const std::vector<std::string>& volumes);

  // Ends after the file at hand, and waits for it. Nothing is taken from then on.
  void Stop();

  // A recording that a search couldn't read.
  void NoteUnreadable(const std::string& path);

  // While the result lives no index is exchanged of a recording whose name lies in the range, in
  // seconds since 1970. Waits for an exchange that is under way. The healer outlives the result.
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
  std::mutex mutex;             // guards what follows but `thread`
  std::condition_variable wake;
  bool stopping = false;
  std::vector<Volume> volumes;     // still to be looked at
  std::set<std::string> reported;  // recordings still to be looked at
  std::set<std::string> waiting;   // those that were in use
  std::set<std::string> hopeless;  // those that couldn't be mended
  std::list<Range> held;           // by searches
  std::thread thread;
  std::uint64_t threadId = 0;  // once it runs
};

}  // namespace qvsvr::kelvo
