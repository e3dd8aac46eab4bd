#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "storage/Protection.h"
#include "storage/RecordingTree.h"

namespace qvsvr::kelvo {

// What walks of the tree remember of its hours, so that one in which nothing may go costs one look
// at its directory, and a file's head is read once. Worker thread only.
class TreeMemory {
 public:
  struct Hour {
    // The directory as it was when all its files were found protected; 0 when they weren't.
    std::uint64_t stamp = 0;
    std::uint64_t revision = 0;  // of the verdicts
    std::int64_t until = 0;      // none of them changes before that time
    std::uint32_t bookmarkSkips = 0;
    std::uint32_t retentionSkips = 0;
    HeadNotes heads;
  };

  [[nodiscard]] Hour& At(const std::string& hourDirectory) { return hours[hourDirectory]; }
  // Drops the hours of the volume before `oldest`.
  void Forget(const std::string& volume, std::int64_t oldest);

 private:
  std::map<std::string, Hour> hours;  // by the directory's path
};

// What a walk works on. Borrowed.
struct WalkServices {
  qv::kelvo::Platform& platform;
  Protection& protection;
  TreeMemory& memory;
  const std::size_t& volumeDepth;
};

// A cursor over the recordings of some volumes in time order that finds those that room may be made
// by. Worker thread only.
class OldestFileWalker {
 public:
  struct Found {
    std::string path;
    std::string volume;
    std::int64_t time = 0;
  };

  // When a search ends before it has looked at everything. A little is done behind the deadline,
  // too: on a busy machine time passes without work, and mostly that little is all there is to do.
  struct Limits {
    std::function<bool()> stop;
    std::int64_t deadlineNs = std::numeric_limits<std::int64_t>::max();  // monotonic
  };

  // Borrows the services for its life.
  explicit OldestFileWalker(const WalkServices& borrowed) : services(borrowed) {}

  void SetVolumes(std::vector<std::string> roots);

  // The next call of NextRemovableFile begins at the oldest hour again, or, if the walk was there
  // within the last seconds, where it first found something that may go. A paused search goes on
  // where it is, unless what it passed over may have become free meanwhile.
  void Restart();

  // The oldest recording that may go and that wasn't given since the restart. Nothing when there is
  // none before now, or when a limit was met.
  [[nodiscard]] std::optional<Found> NextRemovableFile(const Limits& limits);

  // Whether the last search met its deadline: it is not known yet whether something may go.
  [[nodiscard]] bool Paused() const { return paused; }

  // Tells which recordings are being written: those are passed over, protected or not. May be
  // empty.
  std::function<bool(const std::string& path)> isBeingWritten;

  // Passed over for twenty minutes from the first such file on.
  void NoteFailure(const std::string& path);
  void ForgetOldFailures();
  [[nodiscard]] bool HasFailed(const std::string& path) const { return failedFiles.contains(path); }

  std::uint32_t bookmarkSkips = 0;   // files passed over because of a bookmark
  std::uint32_t retentionSkips = 0;  // and of a retention rule

 private:
  struct Candidate {
    std::uint32_t number = 0;
    std::string name;
  };
  // One directory of the current hour.
  struct Directory {
    std::string path;
    std::size_t volume = 0;
    std::optional<HourTimes> times;  // with the candidates
    std::vector<const BookmarkRecord*> near;
    std::vector<Candidate> candidates;  // by number
    std::size_t next = 0;               // the first that wasn't given or found protected
    bool judged = false;                // `next` is a file that may go
    // Of what was passed over so far.
    std::uint32_t bookmarkSkips = 0;
    std::uint32_t retentionSkips = 0;
    std::int64_t until = kNoTime;
    bool onlyProtected = true;
    std::uint64_t stamp = 0;  // from before the listing
  };
  // Where nothing was found up to, so that the next walk need not look again at once.
  struct Cleared {
    bool known = false;
    std::int64_t resumeHour = 0;  // all before it is protected
    std::int64_t until = kNoTime;
    std::uint64_t revision = 0;
    std::int64_t notedSeconds = 0;
    std::int64_t notedNs = 0;
  };

  bool Begin();
  bool StepHour(const Limits& limits);
  void OpenHour();
  void OpenDirectory(HourDir found);
  void Advance(Directory& directory, const Limits& limits);
  [[nodiscard]] std::optional<Found> TakeOldest(const Limits& limits);
  void CloseHour();
  // Whether the time is up; the search is paused then.
  bool PauseWhenDue(const Limits& limits);
  [[nodiscard]] bool MayGoOn();
  void NoteCleared(std::int64_t resumeHour);
  [[nodiscard]] bool StillCleared() const;
  [[nodiscard]] std::int64_t NowSeconds() const { return services.platform.clock.NowMs() / 1000; }

  WalkServices services;
  std::vector<std::string> volumes;
  std::int64_t firstHour = kNoTime;
  std::int64_t currentHour = kNoTime;
  std::vector<Directory> hourDirs;
  bool begun = false;
  bool gave = false;  // something, since the walk began at the oldest hour
  bool paused = false;
  std::uint64_t effort = 0;  // of this call, in steps to a further hour or file
  std::uint64_t pausedRevision = 0;
  std::int64_t pausedSeconds = 0;
  std::int64_t pausedNs = 0;
  std::int64_t passedUntil = kNoTime;  // of the hours passed since the restart
  Cleared cleared;
  std::set<std::string> failedFiles;
  std::int64_t firstFailureNs = 0;  // monotonic; of the first of `failedFiles`
};

}  // namespace qvsvr::kelvo
