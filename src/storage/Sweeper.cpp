#include "storage/Sweeper.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <set>

#include "host/Log.h"
#include "platform/Files.h"
#include "platform/Threads.h"
#include "storage/Cleanup.h"
#include "tree/CFileInfo.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kNoTime;
using qv::kelvo::kSecondsPerDay;

// Days of a rule may reach back further than any calendar does.
constexpr std::int64_t kOldestTold = -2'208'988'800;  // 1900

// As "%c" has it, whatever locale the process is in.
std::string LocalText(std::int64_t seconds) {
  const auto local = qv::kelvo::ToLocal(std::max(seconds, kOldestTold) * 1000);
  constexpr char kDays[] = "SunMonTueWedThuFriSat";
  constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
  char text[100];
  std::snprintf(text, sizeof text, "%.3s %.3s %2d %02d:%02d:%02d %d", kDays + 3 * local.weekday,
                kMonths + 3 * (local.month - 1), local.day, local.hour, local.minute, local.second,
                local.year);
  return text;
}

// While a file is written its directory may tell an older size than the file itself.
bool MayBeGrowing(const qv::kelvo::PathTime& time, std::int64_t now) {
  return qv::kelvo::AddSeconds(time.last, qv::kelvo::kSecondsPerHour) > now;
}

std::uint64_t RoundedKB(std::uint64_t bytes) {
  return (bytes + 1023) / 1024;
}

// Of a recording's file; 0 when it can't be measured.
std::uint64_t SizeOf(const std::string& mediaPath, const char* extension) {
  std::uint64_t bytes = 0;
  (void)qv::kelvo::FileSize(qv::kelvo::WithExtension(mediaPath, extension), bytes);
  return bytes;
}

}  // namespace

struct Sweeper::HourWork {
  const std::string& directory;
  const std::string& root;
  qv::kelvo::HourTimes times;
  std::int64_t cutoff;
  bool allYoung;   // no file of the hour can be before the cutoff
  bool anyMarked;  // some camera has a bookmark near
  // Files before the cutoff: nothing is removed while the directory is being listed.
  struct OldFile {
    std::string path;
    std::int64_t time;
  };
  std::vector<OldFile> old;
};

Sweeper::Sweeper(qv::kelvo::Platform& borrowed, Owner callbacks)
    : platform(borrowed), owner(std::move(callbacks)), reader(borrowed.mediaFiles) {}

bool Sweeper::Start(Work copies) {
  if (running) return false;
  if (thread.joinable()) thread.join();
  stop = false;
  work = std::move(copies);
  running = true;
  try {
    thread = std::thread(&Sweeper::Run, this);
  } catch (...) {
    running = false;
    throw;
  }
  return true;
}

bool Sweeper::Stop() {
  const bool wasRunning = running;
  stop = true;
  if (const std::uint64_t id = threadId; id != 0) qv::kelvo::RaiseThread(id);
  if (thread.joinable()) thread.join();
  work = {};
  index = {};
  marked.clear();
  stop = false;
  return wasRunning;
}

void Sweeper::Run() {
  threadId = qv::kelvo::YieldToOtherThreads();
  try {
    Sweep();
    FsCleanup(platform, work.volumes, stop, owner.cleanupRemoves(), owner.isWritten);
  } catch (const std::exception& error) {
    LogPrintf(LogError, "Sweeper - failed: %s", error.what());
  } catch (...) {
    LogPrintf(LogError, "Sweeper - failed: unknown exception");
  }
  threadId = 0;
  running = false;
}

// The shortest time of any camera; without such rules the global one. It is what makes a file worth
// a look; whether it goes is judged by its own rule.
std::int64_t Sweeper::ExpireDays() const {
  std::set<std::int64_t> days;
  for (const auto& [input, value] : work.rules) {
    if (value < 0) days.insert(-std::int64_t{value});
  }
  if (!days.empty()) return *days.begin();
  return work.globalDays < 0 ? -std::int64_t{work.globalDays} : 0;
}

void Sweeper::LogBegin(std::int64_t expireDays, std::int64_t cutoff) const {
  if (expireDays != 0) {
    LogPrintf(LogInfo, "Sweeper - expiring %s files older than %s.",
              work.globalDays != 0 ? "all" : "per-camera", LocalText(cutoff).c_str());
  }
  if (!work.bookmarks.empty()) {
    LogPrintf(LogInfo, "Sweeper - calculating size for %zu bookmarks.", work.bookmarks.size());
  }
}

void Sweeper::Sweep() {
  const std::int64_t expireDays = ExpireDays();
  if (expireDays == 0 && work.bookmarks.empty()) {
    LogPrintf(LogInfo, "Sweeper - no expiration rules and no bookmarks, nothing to do.");
    return;
  }
  files = expired = bookmarkedFiles = bookmarkedKB = 0;
  index = BookmarkIndex(work.bookmarks);
  marked.clear();
  for (auto& [caseId, record] : work.bookmarks) {
    record.sizeKB = 0;
    marked.push_back(&record);
  }
  const std::int64_t cutoff = NowSeconds() - expireDays * kSecondsPerDay;
  LogBegin(expireDays, cutoff);

  const std::int64_t begin = platform.clock.SteadyNs();
  VisitHours(cutoff);
  if (stop) {
    LogPrintf(LogInfo, "Sweeper - interrupted.");
    return;
  }
  const std::int64_t micros = (platform.clock.SteadyNs() - begin) / 1000;
  LogPrintf(LogInfo,
            "Sweeper - completed in %s seconds (files:%llu/expired:%llu)[bookmarked:%llu/"
            "size:%llu].",
            FormatFixed(static_cast<double>(micros) / 1e6, 6).c_str(),
            static_cast<unsigned long long>(files), static_cast<unsigned long long>(expired),
            static_cast<unsigned long long>(bookmarkedFiles),
            static_cast<unsigned long long>(bookmarkedKB));
  owner.sendSizes(work.bookmarks);
}

void Sweeper::VisitHours(std::int64_t cutoff) {
  qv::kelvo::HourCursor cursor(platform.directories, work.volumes);
  while (!stop) {
    const auto found = cursor.Next(platform.clock.NowMs());
    if (!found) return;
    const qv::kelvo::HourTimes times(found->start);
    const auto [first, last] = times.Start();
    const bool anyMarked = index.Touches(first, last + 2 * qv::kelvo::kSecondsPerHour);
    const auto& directories = found->directories;
    for (auto directory = directories.rbegin(); directory != directories.rend(); ++directory) {
      HourWork hour{.directory = directory->path,
                    .root = work.volumes[directory->volume],
                    .times = times,
                    .cutoff = cutoff,
                    .allYoung = first >= cutoff,
                    .anyMarked = anyMarked,
                    .old = {}};
      VisitDirectory(hour);
      if (stop) return;
    }
  }
}

void Sweeper::VisitDirectory(HourWork& hour) {
  using qv::kelvo::ListSizes;
  // Only bookmarks are measured, and only where the system doesn't give sizes away is it dear.
  const auto sizes = hour.anyMarked ? ListSizes::Yes : ListSizes::No;
  qv::kelvo::ListRecordings(platform.directories, hour.directory, sizes,
                            [&](const qv::kelvo::NamedRecording& recording) {
                              VisitFile(hour, recording);
                              return !stop;
                            });
  for (const HourWork::OldFile& file : hour.old) {
    if (stop) return;
    Expire(file.path, hour.root, file.time);
  }
}

// Most files are young and without a bookmark: for those the name's number is all that is looked
// at. A bookmarked one is measured and stays.
void Sweeper::VisitFile(HourWork& hour, const qv::kelvo::NamedRecording& recording) {
  ++files;
  if (hour.allYoung && !hour.anyMarked) return;
  const qv::kelvo::PathTime time = hour.times.At(recording.number);
  const bool old = time.last < hour.cutoff;
  if (!old && !hour.anyMarked) return;
  std::string path = hour.directory + std::string(recording.name);
  if (hour.anyMarked && AccountBookmarks(path, time, recording.size)) return;
  if (old) hour.old.push_back({std::move(path), time.last});
}

void Sweeper::Expire(const std::string& path, const std::string& root, std::int64_t time) {
  if (owner.isWritten(path) || !IsExpired(path, time)) return;
  LogPrintf(LogTrace, "Sweeper - expiring %s", path.c_str());
  if (RemoveRecording(path, root)) ++expired;
}

bool Sweeper::IsExpired(const std::string& path, std::int64_t time) {
  qv::kelvo::PathFields fields;
  // A name like a recording's that isn't one has nobody who could play it.
  if (!qv::kelvo::ParsePath(path, fields)) return true;
  if (work.globalDays < 0) {
    return NowSeconds() - time >= -std::int64_t{work.globalDays} * kSecondsPerDay;
  }
  return ExpiredByCamera(path, fields.id);
}

// In doubt it stays: only a file of channels, whose head can be read, goes by its input's rule.
bool Sweeper::ExpiredByCamera(const std::string& path, qv::kelvo::StreamID id) {
  if (qv::kelvo::IsWideInput(qv::kelvo::InputOf(id))) return false;
  const qv::kelvo::StreamID device = id & ~0xFFu;
  bool anyRule = false;
  for (auto rule = work.rules.lower_bound(device);
       rule != work.rules.end() && rule->first <= (device | 0xFFu); ++rule) {
    if (rule->second < 0) anyRule = true;
  }
  if (!anyRule) return false;

  qv::kelvo::CFileInfo info;
  info.path = path;
  const bool read = qv::kelvo::FillStreamRows(reader, info);
  reader.Close();
  // One that could be read in part may tell a time before its last.
  if (!read || reader.RefusedBySystem() != 0 || !qv::kelvo::IsWideInput(info.fileInput)) {
    return false;
  }
  const qv::kelvo::StreamRow& row = info.streamRows[0];
  if (row.frames == 0) return true;  // nothing in it
  const auto rule = work.rules.find(device | row.channel);
  if (rule == work.rules.end() || rule->second >= 0) return false;
  return NowSeconds() - row.lastTime >= -std::int64_t{rule->second} * kSecondsPerDay;
}

bool Sweeper::AccountBookmarks(const std::string& path, const qv::kelvo::PathTime& time,
                               std::uint64_t size) {
  const qv::kelvo::StreamID key = qv::kelvo::FileNameKey(path);
  if (key == 0 || time.first == kNoTime || !index.Covers(key, time)) return false;
  if (MayBeGrowing(time, NowSeconds())) size = SizeOf(path, "ps");
  const std::uint64_t kilobytes = RoundedKB(size + SizeOf(path, "psi") + SizeOf(path, "psm"));
  index.Visit(key, time, [&](std::size_t place) {
    marked[place]->sizeKB += static_cast<std::uint32_t>(kilobytes);
  });
  ++bookmarkedFiles;
  bookmarkedKB += kilobytes;
  return true;
}

}  // namespace qvsvr::kelvo
