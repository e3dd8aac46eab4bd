#include "storage/Healer.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <optional>
#include <utility>

#include "host/Log.h"
#include "platform/Threads.h"
#include "tree/HourListing.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::RepairOutcome;
using qv::kelvo::UtcMs;

constexpr UtcMs kLookedBackMs = 2 * qv::kelvo::kSecondsPerDay * 1000;
constexpr int kSiblingHours = 24;              // searched for another recording of the same stream
constexpr std::size_t kMostHopeless = 10'000;  // what is remembered never grows beyond

qv::kelvo::CalendarTime HourOf(const qv::kelvo::PathFields& fields) {
  return {static_cast<int>(fields.year), static_cast<int>(fields.month),
          static_cast<int>(fields.day), static_cast<int>(fields.hour)};
}

// Names of the recordings in an hour directory.
std::vector<std::string> Recordings(qv::kelvo::Directories& directories,
                                    const std::string& directory) {
  std::vector<std::string> names;
  qv::kelvo::ListRecordings(directories, directory, qv::kelvo::ListSizes::No,
                            [&names](const qv::kelvo::NamedRecording& recording) {
                              names.emplace_back(recording.name);
                              return true;
                            });
  return names;
}

// The last hour below `directory`, whose children are of `level`, that has a recording; `numbers`
// are those of the levels above.
std::optional<UtcMs> LastHour(qv::kelvo::Directories& directories, const std::string& directory,
                              std::vector<int>& numbers) {
  const std::size_t level = numbers.size();
  if (level == std::size(qv::kelvo::kPartRanges)) {
    if (Recordings(directories, directory).empty()) return std::nullopt;
    return qv::kelvo::FromLocal({numbers[0], numbers[1], numbers[2], numbers[3]});
  }
  const qv::kelvo::PartRange& range = qv::kelvo::kPartRanges[level];
  auto names = qv::kelvo::ListHourParts(directories, directory, range.low, range.high);
  std::ranges::reverse(names);
  for (const std::string& name : names) {
    numbers.push_back(std::atoi(name.c_str()));
    const auto hour = LastHour(directories, qv::kelvo::ChildDirectory(directory, name), numbers);
    if (hour) return hour;
    numbers.pop_back();
  }
  return std::nullopt;
}

}  // namespace

Healer::Healer(qv::kelvo::Platform& system, qv::kelvo::WriteBack& disk)
    : platform(system), writing(disk) {}

void Healer::Begin(const std::vector<std::string>& roots) {
  for (const std::string& root : roots) {
    if (!known.insert(root).second) continue;
    std::vector<int> numbers;
    const auto hour = LastHour(platform.directories, root, numbers);
    if (!hour) continue;
    const std::lock_guard lock(mutex);
    volumes.push_back({root, *hour});
    StartThread();
  }
}

void Healer::StartThread() {
  if (!stopping && !thread.joinable()) thread = std::thread(&Healer::Run, this);
  wake.notify_one();
}

void Healer::Stop() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
    if (threadId != 0) qv::kelvo::RaiseThread(threadId);
  }
  wake.notify_one();
  if (thread.joinable()) thread.join();
}

bool Healer::Stopping() {
  const std::lock_guard lock(mutex);
  return stopping;
}

void Healer::NoteUnreadable(const std::string& path) {
  const std::lock_guard lock(mutex);
  if (hopeless.contains(path) || !reported.insert(path).second) return;
  StartThread();
}

std::shared_ptr<const void> Healer::Hold(std::int64_t first, std::int64_t last) {
  const std::lock_guard lock(mutex);
  const auto range = held.insert(held.end(), {first, last});
  return {&*range, [this, range](const void*) {
            const std::lock_guard guard(mutex);
            held.erase(range);
            reported.merge(waiting);
            if (!reported.empty()) wake.notify_one();
          }};
}

// Volumes go ahead of what searches report, for each is looked at only once.
void Healer::Run() {
  const std::uint64_t id = qv::kelvo::YieldToOtherThreads();
  std::unique_lock lock(mutex);
  threadId = id;
  if (stopping) qv::kelvo::RaiseThread(id);
  while (!stopping) {
    const auto volume = volumes.empty() ? Volume{} : volumes.back();
    const std::string path = reported.empty() ? "" : *reported.begin();
    if (volumes.empty() && reported.empty()) {
      wake.wait(lock);
      continue;
    }
    if (!volumes.empty()) {
      volumes.pop_back();
    } else {
      reported.erase(path);
    }
    lock.unlock();
    try {
      Tally tally;
      if (!volume.root.empty()) {
        HealVolume(volume);
      } else {
        Heal(path, tally);
      }
    } catch (const std::exception& error) {
      LogPrintf(LogError, "Healing - failed: %s", error.what());
    } catch (...) {
      LogPrintf(LogError, "Healing - failed: unknown exception");
    }
    lock.lock();
  }
}

void Healer::HealVolume(const Volume& volume) {
  Tally tally;
  const std::int64_t begin = platform.clock.SteadyNs();
  std::string before;
  // What was closed shortly before a cut may be hurt within, which no look at its head tells: it
  // stands beside recordings that were open then, or in the hour ahead of theirs.
  bool wholly = true;
  for (UtcMs hour = volume.lastHour; hour >= volume.lastHour - kLookedBackMs && !Stopping();
       hour = qv::kelvo::LocalHourStart(hour - 1)) {
    std::string directory = qv::kelvo::HourDirectory(volume.root, hour);
    if (directory == before) continue;
    wholly = HealHour(directory, wholly, tally);
    before = std::move(directory);
  }
  const auto elapsed = static_cast<double>(platform.clock.SteadyNs() - begin);
  LogPrintf(LogInfo, "Healing - %s in %s seconds: %zu recordings looked at, %zu healed.",
            volume.root.c_str(), FormatFixed(elapsed / 1e9, 6).c_str(), tally.looked, tally.healed);
}

bool Healer::HealHour(const std::string& directory, bool wholly, Tally& tally) {
  std::vector<std::string> others;
  bool hurt = false;
  for (const std::string& name : Recordings(platform.directories, directory)) {
    if (Stopping()) return hurt;
    std::string path = directory + name;
    if (writing.IsAtWork(path)) continue;
    ++tally.looked;
    if (qv::kelvo::LooksDamaged(platform.mediaFiles, path)) {
      hurt = true;
      Heal(path, tally);
    } else {
      others.push_back(std::move(path));
    }
  }
  if (!hurt && !wholly) return false;
  for (const std::string& path : others) {
    if (Stopping()) break;
    Heal(path, tally);
  }
  return hurt;
}

void Healer::Heal(const std::string& path, Tally& tally) {
  qv::kelvo::PathFields fields;
  if (writing.IsAtWork(path) || !qv::kelvo::ParsePath(path, fields)) return;
  const auto result = qv::kelvo::RepairRecording(
      platform, path,
      {.sibling = [&] { return SiblingOf(path); },
       .fileInput = static_cast<std::uint8_t>(qv::kelvo::InputOf(fields.id)),
       .exclusively = [&](const auto& exchange) { return Exchange(path, exchange); }});
  switch (result.outcome) {
    case RepairOutcome::Good:
      return;
    case RepairOutcome::Repaired:
      ++tally.healed;
      LogPrintf(LogWarning, "Healing - %s has a new index of %zu frames, the old one told %zu",
                path.c_str(), result.frames, result.framesBefore);
      return;
    case RepairOutcome::Busy:
      break;
    case RepairOutcome::WouldLose:
    case RepairOutcome::Failed:
      LogPrintf(LogInfo, "Healing - %s is left as it is, error %d", path.c_str(), result.error);
      break;
  }
  const std::lock_guard lock(mutex);
  auto& set = result.outcome == RepairOutcome::Busy ? waiting : hopeless;
  if (set.size() < kMostHopeless) set.insert(path);
}

// Under the lock, so that a search that begins now waits for the exchange instead of reading the
// index while it changes.
bool Healer::Exchange(const std::string& path, const std::function<void()>& exchange) {
  qv::kelvo::PathFields fields;
  (void)qv::kelvo::ParsePath(path, fields);
  const qv::kelvo::HourTimes hour(HourOf(fields));
  if (!hour.Exists()) return false;
  const auto time = hour.At(fields.minute * 100 + fields.second);
  if (writing.IsAtWork(path)) return false;
  const std::lock_guard lock(mutex);
  const bool inUse = std::ranges::any_of(held, [&](const Range& range) {
    return time.last >= range.first && time.first <= range.last;
  });
  if (!inUse) exchange();
  return !inUse;
}

// A healthy recording of the same stream near by: of it a repair can take what the damaged head
// doesn't tell any more.
std::string Healer::SiblingOf(const std::string& path) {
  qv::kelvo::PathFields own;
  if (!qv::kelvo::ParsePath(path, own)) return {};
  std::string root = path;
  for (std::size_t part = 0; part <= std::size(qv::kelvo::kPartRanges); ++part) {
    const std::size_t separator = root.find_last_of(qv::kelvo::kPathSeparators);
    if (separator == std::string::npos) return {};
    root.resize(separator);
  }
  root = qv::kelvo::WithSeparator(root);
  UtcMs hour = qv::kelvo::FromLocal(HourOf(own));
  for (int back = 0; back < kSiblingHours && !Stopping(); ++back) {
    const std::string directory = qv::kelvo::HourDirectory(root, hour);
    for (const std::string& name : Recordings(platform.directories, directory)) {
      const auto parsed = qv::kelvo::ParseName(name);
      std::string candidate = directory + name;
      if (parsed.valid && parsed.id == own.id && candidate != path &&
          !qv::kelvo::LooksDamaged(platform.mediaFiles, candidate)) {
        return candidate;
      }
    }
    hour = qv::kelvo::LocalHourStart(hour - 1);
  }
  return {};
}

}  // namespace qvsvr::kelvo
