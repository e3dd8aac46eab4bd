#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "storage/Protection.h"
#include "tree/HourCursor.h"

namespace qvsvr::kelvo {

// How much one call may do before it leaves the rest to the next: the worker, which all cameras
// share, is held up for 60 ms at most, and by the step that is under way then. One step is made in
// any case, so that a busy machine, where time passes without work, gets on. What was done counts
// in steps, so that the clock need not be asked for each. One call, one thread.
class WorkLimit {
 public:
  // What a look at the disk costs, a listing, a head or a removal, in steps to a further hour or
  // file: behind each of them the clock is asked.
  static constexpr std::uint64_t kDisk = 8;

  // How long one call may hold up the worker.
  static constexpr std::int64_t kCallNs = 60'000'000;

  // Until `stop` tells so, which may be empty, and, unless `patient`, for a call's time from now
  // on.
  WorkLimit(qv::kelvo::Clock& borrowed, std::function<bool()> stopped, bool patient)
      : clock(borrowed),
        stop(std::move(stopped)),
        deadlineNs(patient ? std::numeric_limits<std::int64_t>::max()
                           : clock.SteadyNs() + kCallNs) {}

  // Counts work that was done.
  void Spend(std::uint64_t steps) { spent += steps; }

  [[nodiscard]] bool Patient() const {
    return deadlineNs == std::numeric_limits<std::int64_t>::max();
  }
  [[nodiscard]] bool Stopped() const { return stop && stop(); }
  // Whether to leave off.
  [[nodiscard]] bool Met() {
    if (spent < nextLook) return false;
    nextLook = spent + kDisk;
    return Stopped() || clock.SteadyNs() >= deadlineNs;
  }

 private:
  qv::kelvo::Clock& clock;
  const std::function<bool()> stop;
  const std::int64_t deadlineNs;
  std::uint64_t spent = 0;
  std::uint64_t nextLook = kDisk;
};

// What the worker knows of the recordings on the drives, and the one answer that it is kept for:
// which is the oldest that may go.
//
// With 500,000 recordings the trees can't be walked for each file that a full drive needs, and a
// table of all files would have to be told of everything that others do there: sweeper, cleanup,
// healer, people. So it remembers only what an hour's directory would say again as long as its
// change stamp stays. A first look takes as long as reading the heads; then a choice that fails
// costs 3 ms.
//
// Per hour directory it holds the change stamp, what was read of the heads of its files, and until
// when it is known that nothing in it may go. The hours are read in the order of time, as far as a
// question asks for, in a pass that begins at the oldest one. A pass serves the questions of five
// seconds, one whose last question is still open each that comes within two minutes of the one
// before, and within it no directory is asked for its stamp twice. In the next one a directory with
// the same stamp costs that one look. That something may go is never remembered, only that it may
// not: a verdict that is out of date keeps a recording, for a while, and never loses one.
//
// A question that meets its limit of work is answered with Unknown; put again, it goes on behind
// what is known by then. Worker thread only.
class Catalogue {
 public:
  // Borrows both for its life.
  Catalogue(qv::kelvo::Platform& platform, Protection& protection);

  // Roots of the volumes it is about. What is known of those that stay is kept.
  void SetVolumes(const std::vector<std::string>& roots);

  enum class Outcome {
    Found,
    Nothing,  // none may go: of the hours before now, and of the oldest, which may lie ahead
    Unknown   // the limit was met, or the last one was met a moment ago
  };
  struct Answer {
    Outcome outcome = Outcome::Nothing;
    std::string path;
    std::string root;
    std::int64_t time = 0;             // seconds since 1970
    std::uint32_t protectedFiles = 0;  // older ones, passed over for a bookmark or a rule
  };
  struct Question {
    std::vector<std::string> roots;  // only recordings on those of the volumes
    // Recordings to pass over although they may go; may be empty.
    std::function<bool(const std::string& path)> except;
    // Whether Nothing may be what was known some seconds ago; else it is looked up now.
    bool mayBeOld = false;
  };
  [[nodiscard]] Answer Oldest(const Question& question, WorkLimit& limit);

  // To be called when the recording that was found last was removed, or could not be: it is not
  // found again in this pass.
  void Drop();

  // Behind an answer Unknown the worker has this time for other work first.
  static constexpr std::int64_t kPauseNs = 15'000'000;

 private:
  struct Candidate {
    std::uint32_t number = 0;
    std::string name;
  };
  struct Hour {
    std::int64_t start = 0;  // seconds since 1970
    std::size_t volume = 0;
    std::string path;

    // Of the files judged so far, all of them unless `listed`, none may go but what was passed
    // over: under this revision of the rules (0: not judged), before that time, and in a later pass
    // only if the directory still has that stamp.
    std::uint64_t revision = 0;
    std::int64_t until = 0;
    std::uint64_t stamp = 0;
    std::uint32_t protectedFiles = 0;
    HeadNotes heads;

    // While its files are being judged: those left, by number.
    bool listed = false;
    bool lasting = true;  // the verdicts hold beyond this pass
    std::uint64_t stampSeen = 0;
    std::optional<qv::kelvo::HourTimes> times;
    std::vector<Candidate> candidates;
    std::size_t next = 0;
  };
  // The first hours of the pass, of which it is known that nothing may go.
  struct Prefix {
    std::size_t hours = 0;
    std::uint64_t revision = 0;
    std::int64_t until = qv::kelvo::kNoTime;
    std::uint32_t protectedFiles = 0;
    std::vector<bool> asked;  // for these volumes
  };

  void BeginPass(std::int64_t nowNs);
  // Gets on to the next hour's directories, by one listing or all the way; false when there are no
  // more.
  [[nodiscard]] bool ReadOn(WorkLimit& limit);
  void Meet(qv::kelvo::HourCursor::Directory directory, std::int64_t start);
  void List(Hour& hour);
  // Judges on to the hour's first file that may go; false when the limit was met before.
  [[nodiscard]] bool Judge(Hour& hour, const Question& question, WorkLimit& limit);
  void Settle(Hour& hour);
  [[nodiscard]] bool IsSettled(const Hour& hour) const {
    return !hour.listed && hour.revision == revision && NowSeconds() < hour.until;
  }
  // The oldest of the hours [begin, end), which are of one time. Unknown when the limit was met.
  [[nodiscard]] Answer OldestOf(std::size_t begin, std::size_t end, const Question& question,
                                WorkLimit& limit);
  [[nodiscard]] Answer Search(const Question& question, WorkLimit& limit);
  [[nodiscard]] std::int64_t NowSeconds() const { return platform.clock.NowMs() / 1000; }

  qv::kelvo::Platform& platform;
  Protection& protection;
  std::vector<std::string> volumes;
  std::optional<qv::kelvo::HourCursor> cursor;
  // In the order of time and, within an hour, of the volumes. The first `read` were met in this
  // pass, the others in an earlier one.
  std::deque<Hour> hours;
  std::size_t read = 0;
  bool allRead = false;
  bool dropped = false;     // something that was found in this pass
  bool fresh = false;       // the pass has served no answer yet
  std::int64_t passNs = 0;  // monotonic; when the pass began
  Prefix prefix;
  std::uint64_t revision = 0;  // of the rules, as of this question
  std::size_t foundIn = 0;     // the hour of the last answer Found
  bool unknown = false;        // the last answer
  std::int64_t resumeNs = 0;   // monotonic
};

}  // namespace qvsvr::kelvo
