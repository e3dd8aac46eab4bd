#include "storage/Sweeper.h"

#include <wx/datetime.h>
#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <exception>
#include <set>

#include "host/Log.h"
#include "media/CFileInfo.h"
#include "media/RecordPath.h"
#include "platform/Threads.h"
#include "storage/Cleanup.h"
#include "storage/RecordingRemoval.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint8_t kWideInput = 0x80;  // an input byte from here on stands for an encoder

// Days of a rule may reach back further than any calendar does.
constexpr std::int64_t kOldestTold = -2'208'988'800;  // 1900

std::string LocalText(std::int64_t seconds) {
  const wxLongLong told(std::max(seconds, kOldestTold) * 1000);
  return wxDateTime(told).Format("%c").ToStdString();
}

std::uint64_t RoundedKB(std::uint64_t bytes) {
  return (bytes + 1023) / 1024;
}

// Of a companion; 0 when it can't be measured.
std::uint64_t SizeOf(const std::string& mediaPath, const char* extension) {
  boost::filesystem::path companion(mediaPath);
  boost::system::error_code error;
  const std::uintmax_t size =
      boost::filesystem::file_size(companion.replace_extension(extension), error);
  return error ? 0 : size;
}

bool SameHourDir(std::int64_t hour, std::int64_t other) {
  return qv::kelvo::HourDirectory("", hour * 1000) == qv::kelvo::HourDirectory("", other * 1000);
}

}  // namespace

struct Sweeper::HourWork {
  const std::string& directory;
  HourTimes times;
  std::vector<BookmarkRecord*> near;
  std::int64_t cutoff;
  bool allYoung;  // no file of the hour can be before the cutoff
  // Files before the cutoff: nothing is removed while the directory is being listed.
  struct OldFile {
    std::string path;
    std::int64_t time;
  };
  std::vector<OldFile> old;
};

Sweeper::Sweeper(qv::kelvo::Platform& borrowed, Owner callbacks)
    : platform(borrowed), owner(std::move(callbacks)), reader(borrowed.mediaFiles) {}

bool Sweeper::Start(Work copies, std::size_t volumeDepth) {
  if (running) return false;
  if (thread.joinable()) thread.join();
  stop = false;
  work = std::move(copies);
  depth = volumeDepth;
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
  if (thread.joinable()) thread.join();
  work = {};
  stop = false;
  return wasRunning;
}

void Sweeper::Run() {
  qv::kelvo::YieldToOtherThreads();
  try {
    Sweep();
    FsCleanup(platform, work.volumes, depth, stop, owner.cleanupRemoves());
  } catch (const std::exception& error) {
    LogPrintf(LogError, "Sweeper - failed: %s", error.what());
  } catch (...) {
    LogPrintf(LogError, "Sweeper - failed: unknown exception");
  }
  running = false;
}

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
  for (auto& [caseId, record] : work.bookmarks) record.sizeKB = 0;
  const std::int64_t cutoff = NowSeconds() - expireDays * kSecondsPerDay;
  LogBegin(expireDays, cutoff);

  const std::int64_t begin = platform.clock.SteadyNs();
  HourDir directory;
  if (Restart()) {
    while (!stop && NextHourDir(directory)) VisitDirectory(directory, cutoff);
  }
  if (stop) {
    LogPrintf(LogInfo, "Sweeper - interrupted.");
    return;
  }
  const std::int64_t micros = (platform.clock.SteadyNs() - begin) / 1000;
  LogPrintf(LogInfo,
            "Sweeper - completed in %f seconds (files:%llu/expired:%llu)[bookmarked:%llu/"
            "size:%llu].",
            static_cast<double>(micros) / 1e6, static_cast<unsigned long long>(files),
            static_cast<unsigned long long>(expired),
            static_cast<unsigned long long>(bookmarkedFiles),
            static_cast<unsigned long long>(bookmarkedKB));
  owner.sendSizes(work.bookmarks);
}

// Puts the walk to the oldest hour; false when there is none.
bool Sweeper::Restart() {
  hourDirs.clear();
  currentHour = OldestHour(platform.directories, work.volumes, depth);
  if (currentHour == kNoTime) return false;
  hourDirs = HourDirs(work.volumes, currentHour);
  return true;
}

bool Sweeper::NextHourDir(HourDir& directory) {
  while (hourDirs.empty()) {
    const std::int64_t last = currentHour;
    currentHour += kSecondsPerHour;
    if (stop || currentHour < 0 || currentHour >= NowSeconds()) return false;
    // Where the clocks are set back an hour comes twice, and its directories only once.
    if (SameHourDir(last, currentHour)) continue;
    hourDirs = HourDirs(work.volumes, currentHour);
    if (hourDirs.empty()) currentHour = SkipAbsentDay(work.volumes, currentHour);
  }
  directory = std::move(hourDirs.back());
  hourDirs.pop_back();
  return true;
}

void Sweeper::VisitDirectory(const HourDir& directory, std::int64_t cutoff) {
  HourTimes times(directory.path, depth);
  const std::int64_t start = times.Start();
  HourWork hour{.directory = directory.path,
                .times = std::move(times),
                .near = BookmarksNear(work.bookmarks, start),
                .cutoff = cutoff,
                .allYoung = start - kNameSlack >= cutoff,
                .old = {}};
  // Only bookmarks are measured, and only where the system doesn't give sizes away is it dear.
  const auto sizes = hour.near.empty() ? qv::kelvo::ListSizes::No : qv::kelvo::ListSizes::Yes;
  ListRecordings(platform.directories, directory.path, sizes, [&](const NamedRecording& recording) {
    VisitFile(hour, recording);
    return !stop;
  });
  for (const HourWork::OldFile& file : hour.old) {
    if (stop) return;
    Expire(file.path, file.time);
  }
}

void Sweeper::VisitFile(HourWork& hour, const NamedRecording& recording) {
  ++files;
  if (hour.allYoung && hour.near.empty()) return;
  const std::int64_t time = hour.times.At(recording.number);
  if (time >= hour.cutoff && hour.near.empty()) return;
  std::string path = hour.directory + std::string(recording.name);
  if (AccountBookmarks(hour.near, path, time, recording.size)) return;
  if (time < hour.cutoff) hour.old.push_back({std::move(path), time});
}

void Sweeper::Expire(const std::string& path, std::int64_t time) {
  if (!IsExpired(path, time)) return;
  LogPrintf(LogTrace, "Sweeper - expiring %s", path.c_str());
  if (RemoveRecording(path, depth)) ++expired;
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

bool Sweeper::ExpiredByCamera(const std::string& path, qv::kelvo::StreamID id) {
  if ((qv::kelvo::InputOf(id) & kWideInput) != 0) return false;
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
  if (!read || (info.fileInput & kWideInput) == 0) return false;
  const qv::kelvo::StreamRow& row = info.streamRows[0];
  if (row.frames == 0) return true;  // nothing in it
  const auto rule = work.rules.find(device | row.channel);
  if (rule == work.rules.end() || rule->second >= 0) return false;
  return NowSeconds() - row.lastTime >= -std::int64_t{rule->second} * kSecondsPerDay;
}

bool Sweeper::AccountBookmarks(const std::vector<BookmarkRecord*>& near, const std::string& path,
                               std::int64_t time, std::uint64_t size) {
  const qv::kelvo::StreamID key = FileNameKey(path);
  if (key == 0 || time == kNoTime) return false;
  std::uint64_t kilobytes = 0;
  bool bookmarked = false;
  for (BookmarkRecord* record : near) {
    if (!record->Covers(time, key)) continue;
    if (!bookmarked) kilobytes = RoundedKB(size + SizeOf(path, "psi") + SizeOf(path, "psm"));
    bookmarked = true;
    record->sizeKB += static_cast<std::uint32_t>(kilobytes);
  }
  if (!bookmarked) return false;
  ++bookmarkedFiles;
  bookmarkedKB += kilobytes;
  return true;
}

}  // namespace qvsvr::kelvo
