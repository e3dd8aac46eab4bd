#include "storage/Cleanup.h"

#include <algorithm>
#include <boost/filesystem.hpp>

#include "host/Log.h"
#include "media/LocalTime.h"
#include "storage/RecordingTree.h"

namespace qvsvr::kelvo {
namespace {

namespace fs = boost::filesystem;
using boost::system::error_code;

constexpr std::uint64_t kLeastMediaSize = 2048;
constexpr std::int64_t kSparedSeconds = 300;
constexpr const char* kCompanions[] = {"psi", "psm"};

// The names that "*.ps?" finds where `?` stands for a character or none.
bool IsMediaOrCompanion(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  const std::string_view extension = name.substr(dot + 1);
  return (extension.size() == 2 || extension.size() == 3) && (extension[0] | 0x20) == 'p' &&
         (extension[1] | 0x20) == 's';
}

bool IsCompanion(std::string_view name) {
  const std::string_view rest = name.substr(std::min(name.find('.'), name.size()));
  return rest.starts_with(".psi") || rest.starts_with(".psm");
}

bool Exists(const fs::path& path) {
  error_code error;
  const fs::file_type type = fs::status(path, error).type();
  return type != fs::status_error && type != fs::file_not_found;
}

// The time of a path, the later one of an hour that comes twice since the clocks are set back.
std::int64_t LatestTime(const std::string& path, std::size_t depth) {
  const std::int64_t time = PathToTime(path, depth);
  if (time == kNoTime) return time;
  const auto first = qv::kelvo::ToLocal(time * 1000);
  const auto second = qv::kelvo::ToLocal((time + kSecondsPerHour) * 1000);
  return first.hour == second.hour && first.day == second.day ? time + kSecondsPerHour : time;
}

// Without the separator at its end.
std::string Bare(const std::string& directory) {
  return directory.substr(0, directory.size() - 1);
}

class Run {
 public:
  Run(qv::kelvo::Platform& system, std::size_t volumeDepth, const std::atomic<bool>& stopFlag,
      bool removes)
      : platform(system), depth(volumeDepth), stop(stopFlag), removing(removes) {}

  void CleanVolume(const std::string& volume);

  CleanupCounts counts;

 private:
  void CleanLevel(const std::string& directory, std::size_t level);
  void CleanHour(const std::string& directory);
  bool VisitCompanion(const std::string& path);
  void RemoveEmptyMedia(const fs::path& media, std::uint64_t size);
  void RemoveOrphans(const fs::path& media);
  void RemoveFile(const fs::path& path);
  void RemoveDirectory(const std::string& directory, const char* prefix);
  [[nodiscard]] std::int64_t CurrentHour() const {
    const std::int64_t now = platform.clock.NowMs() / 1000;
    return now - now % kSecondsPerHour;
  }

  qv::kelvo::Platform& platform;
  std::size_t depth;
  const std::atomic<bool>& stop;
  bool removing;
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

void Run::CleanVolume(const std::string& volume) {
  const std::size_t before = counts.years;
  CleanLevel(volume, 0);
  if (counts.years != before || stop) return;
  ++counts.emptyVolumes;
  LogPrintf(LogTrace, "fs-cleanup - vol %s has no year directories", volume.c_str());
}

// Cleans the children of a directory, which are of `level`, and what is left of them.
void Run::CleanLevel(const std::string& directory, std::size_t level) {
  const PartRange& range = kPartRanges[level];
  const auto names = ListHourParts(platform.directories, directory, range.low, range.high);
  counts.*kLevels[level].found += names.size();
  for (const std::string& name : names) {
    if (stop) return;
    const std::string child = ChildDirectory(directory, name);
    if (level == kHourLevel) {
      if (LatestTime(child, depth) < CurrentHour()) CleanHour(child);
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

bool Run::VisitCompanion(const std::string& path) {
  ++counts.files;
  if (AddSeconds(LatestTime(path, depth), kSparedSeconds) > CurrentHour()) return true;
  fs::path media(path);
  media.replace_extension("ps");
  error_code error;
  const std::uint64_t size = fs::file_size(media, error);
  if (!error) {
    if (size < kLeastMediaSize) RemoveEmptyMedia(media, size);
  } else if (error == boost::system::errc::no_such_file_or_directory) {
    RemoveOrphans(media);
  } else {
    LogPrintf(LogTrace, "fs-cleanup - get size error for %s:%d - %s", media.string().c_str(),
              error.value(), error.message().c_str());
  }
  return !stop;
}

void Run::RemoveEmptyMedia(const fs::path& media, std::uint64_t size) {
  ++counts.emptyFiles;
  LogPrintf(LogTrace, "fs-cleanup - empty file %s[%llu bytes]", media.string().c_str(),
            static_cast<unsigned long long>(size));
  RemoveFile(media);
  for (const char* extension : kCompanions) {
    fs::path companion(media);
    if (!Exists(companion.replace_extension(extension))) continue;
    LogPrintf(LogTrace, "fs-cleanup -  and file %s", companion.string().c_str());
    RemoveFile(companion);
  }
}

void Run::RemoveOrphans(const fs::path& media) {
  for (const char* extension : kCompanions) {
    fs::path companion(media);
    if (!Exists(companion.replace_extension(extension))) continue;
    ++counts.orphanedFiles;
    LogPrintf(LogTrace, "fs-cleanup - orphan file %s", companion.string().c_str());
    RemoveFile(companion);
  }
}

void Run::RemoveFile(const fs::path& path) {
  if (!removing) return;
  error_code error;
  if (fs::remove(path, error)) return;
  LogPrintf(LogTrace, "fs-cleanup - failed to remove %s:%d - %s", path.string().c_str(),
            error.value(), error.message().c_str());
}

// Removes the directory if it is empty.
void Run::RemoveDirectory(const std::string& directory, const char* prefix) {
  const std::string path = Bare(directory);
  error_code error;
  if (fs::remove(path, error) || error == boost::system::errc::directory_not_empty) return;
  LogPrintf(LogTrace, "%s failed to remove dir %s: %d - %s", prefix, path.c_str(), error.value(),
            error.message().c_str());
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
  LogPrintf(LogInfo, "fs-cleanup - elapsed %f seconds", static_cast<double>(micros) / 1e6);
}

}  // namespace

CleanupCounts FsCleanup(qv::kelvo::Platform& platform, const std::vector<std::string>& volumes,
                        std::size_t volumeDepth, const std::atomic<bool>& stop, bool removing) {
  if (stop) return {};
  LogPrintf(LogInfo,
            "fs-cleanup - %s empty dirs, empty ps files, and orphaned index/metadata files.",
            removing ? "Removing" : "Reporting");
  const std::int64_t begin = platform.clock.SteadyNs();
  Run run(platform, volumeDepth, stop, removing);
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
                                       if (!IsMediaOrCompanion(entry.name)) return true;
                                       anyMatch = true;
                                       if (IsCompanion(entry.name))
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

}  // namespace qvsvr::kelvo
