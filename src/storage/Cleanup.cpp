#include "storage/Cleanup.h"

#include <algorithm>

#include "host/Log.h"
#include "platform/Files.h"
#include "platform/Platform.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::ErrorText;
using qv::kelvo::IsMissing;

constexpr std::uint64_t kLeastMediaSize = 2048;
constexpr std::int64_t kSparedSeconds = 300;
constexpr const char* kCompanions[] = {"psi", "psm"};

// Without the separator at its end.
std::string Bare(const std::string& directory) {
  return directory.substr(0, directory.size() - 1);
}

class Run {
 public:
  Run(qv::kelvo::Platform& system, const std::atomic<bool>& stopFlag, bool removes,
      const std::function<bool(const std::string&)>& written)
      : platform(system), stop(stopFlag), removing(removes), isWritten(written) {}

  void CleanVolume(const std::string& root);

  CleanupCounts counts;

 private:
  void CleanLevel(const std::string& directory, std::size_t level);
  void CleanHour(const std::string& directory);
  bool VisitCompanion(const std::string& path);
  void RemoveEmptyMedia(const std::string& media, std::uint64_t size);
  void RemoveOrphans(const std::string& media);
  void RemoveFile(const std::string& path);
  void RemoveDirectory(const std::string& directory, const char* prefix);
  // The later one of a path in the hour that comes twice.
  [[nodiscard]] std::int64_t LatestTime(const std::string& path) const {
    return qv::kelvo::TimeOfPath(path, volume).last;
  }
  // Where a local hour doesn't begin with one of UTC, the one that began earlier.
  [[nodiscard]] std::int64_t CurrentHour() const {
    const qv::kelvo::UtcMs now = platform.clock.NowMs();
    return std::min(now / 1000 - now / 1000 % qv::kelvo::kSecondsPerHour,
                    qv::kelvo::LocalHourStart(now) / 1000);
  }

  qv::kelvo::Platform& platform;
  std::string volume;  // the one being cleaned
  const std::atomic<bool>& stop;
  bool removing;
  const std::function<bool(const std::string&)>& isWritten;
};

// Levels of the tree: where its directories are counted, and how a removal that fails is told.
struct LevelInfo {
  std::size_t CleanupCounts::*found;
  std::size_t CleanupCounts::*empty;
  const char* prefix;
};
constexpr LevelInfo kLevels[] = {
    {&CleanupCounts::years, &CleanupCounts::emptyYears, "fs-cleanup:"},
    {&CleanupCounts::months, &CleanupCounts::emptyMonths, "fs-cleanup -"},
    {&CleanupCounts::days, &CleanupCounts::emptyDays, "fs-cleanup -"},
    {&CleanupCounts::hours, &CleanupCounts::emptyHours, "fs-cleanup -"},
};
constexpr std::size_t kHourLevel = std::size(kLevels) - 1;

void Run::CleanVolume(const std::string& root) {
  const std::size_t before = counts.years;
  volume = root;
  CleanLevel(root, 0);
  if (counts.years != before || stop) return;
  ++counts.emptyVolumes;
  LogPrintf(LogTrace, "fs-cleanup - vol %s has no year directories", root.c_str());
}

// Cleans the children of a directory, which are of `level`, and what is left of them.
void Run::CleanLevel(const std::string& directory, std::size_t level) {
  const qv::kelvo::PartRange& range = qv::kelvo::kPartRanges[level];
  const auto names =
      qv::kelvo::ListHourParts(platform.directories, directory, range.low, range.high);
  counts.*kLevels[level].found += names.size();
  for (const std::string& name : names) {
    if (stop) return;
    const std::string child = qv::kelvo::ChildDirectory(directory, name);
    if (level == kHourLevel) {
      if (LatestTime(child) < CurrentHour()) CleanHour(child);
      continue;
    }
    const std::size_t before = counts.*kLevels[level + 1].found;
    CleanLevel(child, level + 1);
    if (stop) return;
    if (counts.*kLevels[level + 1].found == before) {
      ++(counts.*kLevels[level].empty);
      LogPrintf(LogTrace, "fs-cleanup - remove empty dir: %s", Bare(child).c_str());
    }
    if (removing) RemoveDirectory(child, kLevels[level].prefix);
  }
}

void Run::CleanHour(const std::string& directory) {
  const int result =
      VisitCompanionFiles(platform.directories, directory,
                          [this](const std::string& path) { return VisitCompanion(path); });
  if (result == -1) {
    ++counts.emptyHours;
    LogPrintf(LogTrace, "fs-cleanup - remove empty dir: %s", Bare(directory).c_str());
  } else if (result == -2) {
    LogPrintf(LogTrace, "fs-cleanup - error in dir: %s", Bare(directory).c_str());
  }
  if (removing) RemoveDirectory(directory, kLevels[kHourLevel].prefix);
}

// The media's own size counts: its directory may tell an older one.
bool Run::VisitCompanion(const std::string& path) {
  ++counts.files;
  if (qv::kelvo::AddSeconds(LatestTime(path), kSparedSeconds) > CurrentHour()) return true;
  const std::string media = qv::kelvo::WithExtension(path, "ps");
  std::uint64_t size = 0;
  const int error = qv::kelvo::FileSize(media, size);
  if (error == 0) {
    if (size < kLeastMediaSize && !isWritten(media)) RemoveEmptyMedia(media, size);
  } else if (IsMissing(error)) {
    RemoveOrphans(media);
  } else {
    LogPrintf(LogTrace, "fs-cleanup - get size error for %s:%d - %s", media.c_str(), error,
              ErrorText(error).c_str());
  }
  return !stop;
}

void Run::RemoveEmptyMedia(const std::string& media, std::uint64_t size) {
  ++counts.emptyFiles;
  LogPrintf(LogTrace, "fs-cleanup - empty file %s[%llu bytes]", media.c_str(),
            static_cast<unsigned long long>(size));
  RemoveFile(media);
  for (const char* extension : kCompanions) {
    const std::string companion = qv::kelvo::WithExtension(media, extension);
    if (!qv::kelvo::Exists(companion)) continue;
    LogPrintf(LogTrace, "fs-cleanup -  and file %s", companion.c_str());
    RemoveFile(companion);
  }
}

void Run::RemoveOrphans(const std::string& media) {
  for (const char* extension : kCompanions) {
    const std::string companion = qv::kelvo::WithExtension(media, extension);
    if (!qv::kelvo::Exists(companion)) continue;
    ++counts.orphanedFiles;
    LogPrintf(LogTrace, "fs-cleanup - orphan file %s", companion.c_str());
    RemoveFile(companion);
  }
}

void Run::RemoveFile(const std::string& path) {
  if (!removing) return;
  int error = qv::kelvo::RemoveFile(path);
  if (error == 0) return;
  // One that has vanished is told without an error.
  if (IsMissing(error)) error = 0;
  LogPrintf(LogTrace, "fs-cleanup - failed to remove %s:%d - %s", path.c_str(), error,
            ErrorText(error).c_str());
}

// Removes the directory if it is empty.
void Run::RemoveDirectory(const std::string& directory, const char* prefix) {
  const std::string path = Bare(directory);
  int error = qv::kelvo::RemoveEmptyDirectory(path);
  if (error == 0 || qv::kelvo::IsNotEmpty(error)) return;
  if (IsMissing(error)) error = 0;  // likewise
  LogPrintf(LogTrace, "%s failed to remove dir %s: %d - %s", prefix, path.c_str(), error,
            ErrorText(error).c_str());
}

void LogCounts(const CleanupCounts& counts, std::int64_t elapsedNs) {
  LogPrintf(LogInfo, "fs-cleanup - vols:%zu  dirs:%zu[y:%zu, m:%zu, d:%zu, h:%zu]", counts.volumes,
            counts.years + counts.months + counts.days + counts.hours, counts.years, counts.months,
            counts.days, counts.hours);
  LogPrintf(LogInfo, "fs-cleanup - empty vols:%zu, empty dirs:%zu[y:%zu, m:%zu, d:%zu, h:%zu]",
            counts.emptyVolumes,
            counts.emptyYears + counts.emptyMonths + counts.emptyDays + counts.emptyHours,
            counts.emptyYears, counts.emptyMonths, counts.emptyDays, counts.emptyHours);
  LogPrintf(LogInfo, "fs-cleanup - files:%zu, empty files:%zu, orphaned files:%zu", counts.files,
            counts.emptyFiles, counts.orphanedFiles);
  const std::int64_t micros = elapsedNs / 1000;
  LogPrintf(LogInfo, "fs-cleanup - elapsed %s seconds",
            FormatFixed(static_cast<double>(micros) / 1e6, 6).c_str());
}

}  // namespace

CleanupCounts FsCleanup(qv::kelvo::Platform& platform, const std::vector<std::string>& volumes,
                        const std::atomic<bool>& stop, bool removing,
                        const std::function<bool(const std::string&)>& isWritten) {
  if (stop) return {};
  LogPrintf(LogInfo,
            "fs-cleanup - %s empty dirs, empty ps files, and orphaned index/metadata files.",
            removing ? "Removing" : "Reporting");
  const std::int64_t begin = platform.clock.SteadyNs();
  Run run(platform, stop, removing, isWritten);
  run.counts.volumes = volumes.size();
  for (const std::string& volume : volumes) {
    if (stop) break;
    run.CleanVolume(volume);
  }
  if (stop) {
    LogPrintf(LogInfo, "fs-cleanup - interrupted");
  } else {
    LogCounts(run.counts, platform.clock.SteadyNs() - begin);
  }
  return run.counts;
}

int VisitCompanionFiles(qv::kelvo::Directories& directories, const std::string& directory,
                        const std::function<bool(const std::string&)>& visit) {
  bool anyMatch = false;
  std::vector<std::string> companions;
  const int error = directories.List(directory, "*.ps*", qv::kelvo::ListSizes::No,
                                     [&](const qv::kelvo::DirectoryEntry& entry) {
                                       if (!qv::kelvo::IsMediaOrCompanionName(entry.name))
                                         return true;
                                       anyMatch = true;
                                       if (qv::kelvo::IsCompanionName(entry.name))
                                         companions.emplace_back(entry.name);
                                       return true;
                                     });
  if (error != 0) return -2;
  if (!anyMatch) return -1;
  for (const std::string& name : companions) {
    if (!visit(directory + name)) break;
  }
  return 0;
}

namespace {

using qv::kelvo::IsMissing;

// Tells a failure in the log; a file that is missing is none.
bool RemoveLogged(const std::string& path) {
  const int error = qv::kelvo::RemoveFile(path);
  if (error == 0 || IsMissing(error)) return true;
  LogPrintf(LogWarning, "remove %s, %d: %s", path.c_str(), error,
            qv::kelvo::ErrorText(error).c_str());
  return false;
}

// Cuts the last part and the separators ahead of it.
void StripLastPart(std::string& path) {
  const std::size_t separator = path.find_last_of(qv::kelvo::kPathSeparators);
  path.resize(separator == std::string::npos ? 0 : separator);
  while (!path.empty() && qv::kelvo::IsPathSeparator(path.back())) path.pop_back();
}

}  // namespace

bool RemoveRecording(const std::string& path, const std::string& root) {
  // Media that somebody holds can be played as long as they have their index.
  if (!RemoveLogged(path)) return false;
  RemoveLogged(qv::kelvo::WithExtension(path, "psi"));
  // Few recordings have this companion, so its absence or failure is nothing to tell.
  const int error = qv::kelvo::RemoveFile(qv::kelvo::WithExtension(path, "psm"));
  if (error != 0 && !IsMissing(error)) return false;
  PruneEmptyParents(path, root);
  return true;
}

void PruneEmptyParents(const std::string& path, const std::string& root) {
  if (root.empty() || !path.starts_with(root)) return;
  std::string directory = path;
  for (StripLastPart(directory); directory.size() > root.size(); StripLastPart(directory)) {
    const int error = qv::kelvo::RemoveEmptyDirectory(directory);
    // Another thread may have removed it first.
    if (error == 0 || IsMissing(error)) continue;
    if (!qv::kelvo::IsNotEmpty(error)) {
      LogPrintf(LogWarning, "remove dir %s, %d: %s", directory.c_str(), error,
                qv::kelvo::ErrorText(error).c_str());
    }
    return;
  }
}

}  // namespace qvsvr::kelvo
