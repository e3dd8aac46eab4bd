#include "storage/OldestFileWalker.h"

#include <algorithm>
#include <tuple>

#include "media/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kFailureLifeNs = std::int64_t{20} * 60 * 1'000'000'000;
constexpr std::int64_t kClearedLifeNs = std::int64_t{5} * 1'000'000'000;
constexpr std::int64_t kPauseLifeNs = std::int64_t{120} * 1'000'000'000;

// What a listing and a head cost, in steps to a further hour or file, and what is done in any case.
constexpr std::uint64_t kListingEffort = 64;
constexpr std::uint64_t kHeadEffort = 256;
constexpr std::uint64_t kLeastEffort = 4 * kHeadEffort;

}  // namespace

void TreeMemory::Forget(const std::string& volume, std::int64_t oldest) {
  // Within a volume the order of the paths is that of the hours.
  hours.erase(hours.lower_bound(volume),
              hours.lower_bound(qv::kelvo::HourDirectory(volume, oldest * 1000)));
}

void OldestFileWalker::SetVolumes(std::vector<std::string> roots) {
  if (roots == volumes) return;
  volumes = std::move(roots);
  cleared.known = false;
  begun = paused = false;
}

void OldestFileWalker::Restart() {
  if (paused && MayGoOn()) return;
  begun = paused = false;
}

bool OldestFileWalker::MayGoOn() {
  std::int64_t until = passedUntil;
  for (const Directory& directory : hourDirs) until = std::min(until, directory.until);
  return pausedRevision == services.protection.Revision() && NowSeconds() < until &&
         NowSeconds() >= pausedSeconds &&
         services.platform.clock.SteadyNs() - pausedNs < kPauseLifeNs;
}

bool OldestFileWalker::PauseWhenDue(const Limits& limits) {
  if (effort < kLeastEffort) return false;
  const std::int64_t now = services.platform.clock.SteadyNs();
  if (now < limits.deadlineNs) return false;
  paused = true;
  pausedRevision = services.protection.Revision();
  pausedSeconds = NowSeconds();
  pausedNs = now;
  return true;
}

void OldestFileWalker::NoteFailure(const std::string& path) {
  if (failedFiles.empty()) firstFailureNs = services.platform.clock.SteadyNs();
  failedFiles.insert(path);
}

void OldestFileWalker::ForgetOldFailures() {
  if (failedFiles.empty() || services.platform.clock.SteadyNs() - firstFailureNs < kFailureLifeNs) {
    return;
  }
  failedFiles.clear();
  cleared.known = false;
  begun = paused = false;
}

std::optional<OldestFileWalker::Found> OldestFileWalker::NextRemovableFile(const Limits& limits) {
  paused = false;
  effort = 0;
  if (!begun && !Begin()) return std::nullopt;
  do {
    if (auto found = TakeOldest(limits)) {
      NoteCleared(currentHour);
      gave = true;
      return found;
    }
    if (paused) return std::nullopt;
    CloseHour();
  } while (StepHour(limits));
  return std::nullopt;
}

bool OldestFileWalker::Begin() {
  // The oldest hour is looked at wherever it lies. What was given may have been all of it.
  const bool other = gave && cleared.resumeHour >= NowSeconds();
  if (StillCleared() && !other) {
    currentHour = cleared.resumeHour;
    passedUntil = cleared.until;
    if (currentHour >= NowSeconds()) return false;
  } else {
    cleared.known = false;
    passedUntil = kNoTime;
    gave = false;
    firstHour = currentHour =
        OldestHour(services.platform.directories, volumes, services.volumeDepth);
    if (currentHour == kNoTime) {
      NoteCleared(kNoTime);
      return false;
    }
    for (const std::string& volume : volumes) services.memory.Forget(volume, firstHour);
  }
  begun = true;
  OpenHour();
  return true;
}

// On to the next hour that exists; false when there is none before now or a limit was met.
bool OldestFileWalker::StepHour(const Limits& limits) {
  do {
    currentHour += kSecondsPerHour;
    if (currentHour >= NowSeconds()) {
      NoteCleared(currentHour);
      begun = false;
      return false;
    }
    if (limits.stop()) return false;
    OpenHour();
    if (hourDirs.empty()) currentHour = SkipAbsentDay(volumes, currentHour);
    if (PauseWhenDue(limits)) return false;
  } while (hourDirs.empty());
  return true;
}

void OldestFileWalker::OpenHour() {
  hourDirs.clear();
  ++effort;
  for (HourDir& found : HourDirs(volumes, currentHour)) OpenDirectory(std::move(found));
}

void OldestFileWalker::OpenDirectory(HourDir found) {
  qv::kelvo::Directories& directories = services.platform.directories;
  TreeMemory::Hour& hour = services.memory.At(found.path);
  const std::uint64_t revision = services.protection.Revision();
  const std::uint64_t stamp = directories.ChangeStamp(found.path);

  Directory directory{.path = std::move(found.path),
                      .volume = found.volume,
                      .times = {},
                      .near = {},
                      .candidates = {},
                      .stamp = stamp};
  if (stamp != 0 && hour.stamp == stamp && hour.revision == revision && NowSeconds() < hour.until) {
    directory.bookmarkSkips = hour.bookmarkSkips;
    directory.retentionSkips = hour.retentionSkips;
    directory.until = hour.until;
  } else {
    hour.stamp = 0;
    effort += kListingEffort;
    directory.times.emplace(directory.path, services.volumeDepth);
    directory.near = services.protection.Near(directory.times->Start());
    ListRecordings(
        directories, directory.path, qv::kelvo::ListSizes::No,
        [&](const NamedRecording& recording) {
          directory.candidates.push_back({recording.number, std::string(recording.name)});
          return true;
        });
    std::ranges::sort(directory.candidates, {}, [](const Candidate& candidate) {
      return std::tie(candidate.number, candidate.name);
    });
  }
  bookmarkSkips += directory.bookmarkSkips;
  retentionSkips += directory.retentionSkips;
  hourDirs.push_back(std::move(directory));
}

// Finds the directory's next file that may go, unless that takes too long.
void OldestFileWalker::Advance(Directory& directory, const Limits& limits) {
  HeadNotes& notes = services.memory.At(directory.path).heads;
  for (; !directory.judged && directory.next < directory.candidates.size(); ++directory.next) {
    if (PauseWhenDue(limits)) return;
    const Candidate& candidate = directory.candidates[directory.next];
    const RecordingEntry file{directory.path, candidate.name,
                              directory.times->At(candidate.number)};
    const std::uint64_t heads = services.protection.HeadsRead();
    const Verdict verdict = services.protection.Check(file, directory.near, notes);
    effort += 1 + (services.protection.HeadsRead() - heads) * kHeadEffort;
    if (verdict.removable == Removable::Yes) {
      directory.onlyProtected = false;
      const std::string path = file.Path();
      if (HasFailed(path)) continue;
      if (isBeingWritten && isBeingWritten(path)) {
        directory.until = std::min(directory.until, NowSeconds() + 1);
        continue;
      }
      directory.judged = true;
      return;
    }
    const bool bookmarked = verdict.removable == Removable::Bookmarked;
    ++(bookmarked ? bookmarkSkips : retentionSkips);
    ++(bookmarked ? directory.bookmarkSkips : directory.retentionSkips);
    directory.until = std::min(directory.until, verdict.until);
  }
}

std::optional<OldestFileWalker::Found> OldestFileWalker::TakeOldest(const Limits& limits) {
  Directory* oldest = nullptr;
  std::int64_t least = kNoTime;
  for (Directory& directory : hourDirs) {
    Advance(directory, limits);
    if (paused) return std::nullopt;
    if (!directory.judged) continue;
    const std::int64_t time = directory.times->At(directory.candidates[directory.next].number);
    if (oldest != nullptr && time >= least) continue;
    oldest = &directory;
    least = time;
  }
  if (oldest == nullptr) return std::nullopt;
  const std::string& name = oldest->candidates[oldest->next].name;
  Found found{oldest->path + name, volumes[oldest->volume], least};
  ++oldest->next;
  oldest->judged = false;
  return found;
}

// All of the hour was given or is protected.
void OldestFileWalker::CloseHour() {
  // The verdicts over files that are being written, or were a moment ago, aren't final.
  const bool final =
      AddSeconds(currentHour, kSecondsPerHour + Protection::kFinalAge) < NowSeconds();
  for (const Directory& directory : hourDirs) {
    passedUntil = std::min(passedUntil, directory.until);
    if (!final || !directory.onlyProtected || directory.stamp == 0) continue;
    TreeMemory::Hour& hour = services.memory.At(directory.path);
    hour.stamp = directory.stamp;
    hour.revision = services.protection.Revision();
    hour.until = directory.until;
    hour.bookmarkSkips = directory.bookmarkSkips;
    hour.retentionSkips = directory.retentionSkips;
  }
  hourDirs.clear();
}

void OldestFileWalker::NoteCleared(std::int64_t resumeHour) {
  if (cleared.known && cleared.resumeHour == resumeHour) return;
  // The hours behind the earlier place are as fresh as that place's own note at best.
  const bool extends = cleared.known;
  cleared.resumeHour = resumeHour;
  cleared.until = passedUntil;
  if (extends) return;
  cleared.known = true;
  cleared.revision = services.protection.Revision();
  cleared.notedSeconds = NowSeconds();
  cleared.notedNs = services.platform.clock.SteadyNs();
}

bool OldestFileWalker::StillCleared() const {
  return cleared.known && cleared.revision == services.protection.Revision() &&
         NowSeconds() < cleared.until && NowSeconds() >= cleared.notedSeconds &&
         services.platform.clock.SteadyNs() - cleared.notedNs < kClearedLifeNs;
}

}  // namespace qvsvr::kelvo
