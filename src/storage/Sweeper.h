#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "media/PSReader.h"
#include "platform/Platform.h"
#include "storage/Bookmarks.h"
#include "tree/HourCursor.h"
#include "tree/HourListing.h"

namespace qvsvr::kelvo {

// The background pass over the trees, once an hour: expires recordings and measures bookmarks in
// time order, then has the debris of crashes cleaned up. It has a thread of low priority to itself
// and works on copies of rules, bookmarks and volumes, so that it shares nothing with the worker
// but the trees: where both delete, the loser finds a file missing, which is no error. Who waits
// for its end raises its priority.
//
// A pass goes by the rules of its beginning. So a change of a camera's rules ends it first: what a
// new rule keeps must not go by an old one. Hours that no rule and no bookmark touches are only
// counted. Part of CFileSystem. Start and Stop belong to one thread, Running to any.
class Sweeper {
 public:
  struct Work {
    std::vector<std::string> volumes;
    std::map<qv::kelvo::StreamID, std::int32_t> rules;  // days per input; below 0 expires
    Bookmarks bookmarks;
    std::int32_t globalDays = 0;  // below 0: expire after so many days
  };
  // What the pass needs of its owner; called on the sweeper's thread.
  struct Owner {
    std::function<void(const Bookmarks&)> sendSizes;  // at the end of a whole pass
    std::function<bool()> cleanupRemoves;
    // Whether the recording at that path is open: it isn't removed, whatever its name's age.
    std::function<bool(const std::string& media)> isWritten;
  };

  // Borrows the platform for its life. The owner's functions must work until Stop.
  Sweeper(qv::kelvo::Platform& borrowed, Owner callbacks);
  ~Sweeper() { Stop(); }
  Sweeper(const Sweeper&) = delete;
  Sweeper& operator=(const Sweeper&) = delete;

  [[nodiscard]] bool Running() const { return running; }

  // Starts a pass; false while one is running. Throws when there is no thread to be had.
  bool Start(Work copies);

  // Ends the pass at the next file and waits. Returns whether one was running.
  bool Stop();

 private:
  struct HourWork;  // what the visits of one hour directory need

  void Run();
  void Sweep();
  void LogBegin(std::int64_t expireDays, std::int64_t cutoff) const;
  // Days after which the walk's files may expire; 0 when none do.
  [[nodiscard]] std::int64_t ExpireDays() const;

  void VisitHours(std::int64_t cutoff);
  void VisitDirectory(HourWork& hour);
  void VisitFile(HourWork& hour, const qv::kelvo::NamedRecording& recording);
  void Expire(const std::string& path, const std::string& root, std::int64_t time);
  [[nodiscard]] bool IsExpired(const std::string& path, std::int64_t time);
  [[nodiscard]] bool ExpiredByCamera(const std::string& path, qv::kelvo::StreamID id);
  [[nodiscard]] bool AccountBookmarks(const std::string& path, const qv::kelvo::PathTime& time,
                                      std::uint64_t size);
  [[nodiscard]] std::int64_t NowSeconds() const { return platform.clock.NowMs() / 1000; }

  qv::kelvo::Platform& platform;
  const Owner owner;

  // The thread's own between Start and the join.
  Work work;
  BookmarkIndex index;
  std::vector<BookmarkRecord*> marked;  // those of `work`, by their place in the index
  qv::kelvo::PSReader reader;
  std::uint64_t files = 0;
  std::uint64_t expired = 0;
  std::uint64_t bookmarkedFiles = 0;
  std::uint64_t bookmarkedKB = 0;

  std::thread thread;
  std::atomic<bool> stop{false};
  std::atomic<bool> running{false};
  std::atomic<std::uint64_t> threadId{0};  // while the pass runs
};

}  // namespace qvsvr::kelvo
