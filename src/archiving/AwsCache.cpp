#include "archiving/AwsCache.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/thread/lock_guard.hpp>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>

#include "archiving/CLocalDiskScanner.h"
#include "archiving/Landing.h"
#include "host/Log.h"

namespace qvArchiving {

namespace fs = boost::filesystem;
using qvsvr::kelvo::LogInfo;
using qvsvr::kelvo::LogPrintf;
using qvsvr::kelvo::LogTrace;

namespace {

constexpr int kMaxGigabytes = 1024;
constexpr int kMinRetention = 3600;
constexpr double kTrimmedShare = 0.9;  // of the limit, once it was crossed

std::uint64_t Sum(std::uint64_t a, std::uint64_t b) {
  return a + b < a ? UINT64_MAX : a + b;
}

std::uint32_t Distance(std::int64_t a, std::int64_t b) {
  const std::uint64_t high = static_cast<std::uint64_t>(a < b ? b : a);
  const std::uint64_t low = static_cast<std::uint64_t>(a < b ? a : b);
  return static_cast<std::uint32_t>(high - low);
}

}  // namespace

AwsCache::AwsCache(const ScannerProperties& values, qv::kelvo::Platform& system)
    : properties(values), fullName(PropertyOr(values, property::kFullName)), platform(system) {
  ReadLimits();
  Load();
}

std::shared_ptr<AwsCache> AwsCache::Of(const ScannerProperties& values,
                                       qv::kelvo::Platform& system) {
  static std::mutex guarding;
  static std::map<fs::path, std::weak_ptr<AwsCache>> caches;
  const std::lock_guard guard(guarding);
  std::erase_if(caches, [](const auto& entry) { return entry.second.expired(); });
  fs::path root = fs::path(values.at(property::kFullyMountedPath)).lexically_normal();
  if (root.filename() == ".") root = root.parent_path();
  std::weak_ptr<AwsCache>& entry = caches[root];
  auto cache = entry.lock();
  if (cache == nullptr) {
    cache = std::make_shared<AwsCache>(values, system);
    entry = cache;
  }
  return cache;
}

void AwsCache::ReadLimits() {
  if (const auto size = properties.find(property::kCacheSizeGigabytes); size != properties.end()) {
    const int gigabytes = ParseDecimal(size->second);
    if (gigabytes >= 1 && gigabytes <= kMaxGigabytes) {
      maxBytes = static_cast<std::uint64_t>(gigabytes) << 30;
    }
  }
  if (const auto age = properties.find(property::kCacheRetentionSeconds); age != properties.end()) {
    const int seconds = ParseDecimal(age->second);
    if (seconds >= kMinRetention) retentionSeconds = seconds;
  }
}

void AwsCache::Load() {
  const fs::path root = properties.at(property::kFullyMountedPath);
  std::set<int> years;
  std::string error;
  if (!CLocalDiskScanner().GetYears(root, years, error)) return;
  for (const int year : years) {
    for (int month = 1; month <= 12; ++month) {
      for (int day = 1; day <= 31; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
          char name[48];
          std::snprintf(name, sizeof(name), "%d/%02d/%02d/%02d", year, month, day, hour);
          LoadDirectory(root / fs::path(name).make_preferred());
        }
      }
    }
  }
  if (totalBytes == 0) return;
  LogPrintf(LogInfo, "[%s] cache loaded count=%d size=%llu", fullName.c_str(),
            static_cast<int>(files.size()), static_cast<unsigned long long>(totalBytes));
}

void AwsCache::LoadDirectory(const fs::path& directory) {
  std::uint32_t count = 0;
  std::uint64_t bytes = 0;
  std::string error;
  ScannedFileSet listed;
  if (!CLocalDiskScanner().QueryDirectory(directory, count, bytes, &listed, true, error)) return;
  for (ScannedFile file : listed) {
    if (Landing::IsLeftover(file.path)) {
      boost::system::error_code ignored;
      fs::remove(file.path, ignored);
      continue;
    }
    file.byName = false;
    file.path = file.path.generic_string();
    Insert(file);
    totalBytes += file.size;
  }
}

void AwsCache::Insert(const ScannedFile& file) {
  byPath[file.path.generic_string()] = files.insert(file);
}

std::int64_t AwsCache::NowSeconds() const {
  return platform.clock.NowMs() / 1000;
}

void AwsCache::Add(const ScannedFile& file, std::uint64_t) {
  const boost::lock_guard<boost::mutex> guard(lock);
  Trim(file, retentionSeconds);
  const auto known = byPath.find(file.path.generic_string());
  if (known == byPath.end()) {
    totalBytes = Sum(totalBytes, file.size);
    Insert(file);
    LogPrintf(LogTrace, "[%s] cache+ file=%s size=%llu count=%d total=%llu", fullName.c_str(),
              file.path.string().c_str(), static_cast<unsigned long long>(file.size),
              static_cast<int>(files.size()), static_cast<unsigned long long>(totalBytes));
    return;
  }
  ScannedFile renewed = file;
  std::string error;
  CLocalDiskScanner().GetFileSize(file.path, renewed.size, error);
  const Entry old = known->second;
  if (old->size <= totalBytes) totalBytes -= old->size;
  files.erase(old);
  totalBytes = Sum(totalBytes, renewed.size);
  Insert(renewed);
}

bool AwsCache::Trim(const ScannedFile& file, std::int64_t retention) {
  TrimByAge(file, retention);
  const std::uint64_t limit = Limit();
  if (Sum(file.size, totalBytes) > limit) TrimBySize(file, limit);
  return Sum(file.size, totalBytes) <= limit;
}

std::uint64_t AwsCache::Limit() {
  qv::kelvo::DriveSpace space;
  const std::string root = properties.at(property::kFullyMountedPath);
  if (!platform.drives.Space(root, space).empty() || space.capacity == 0) return maxBytes;
  return std::min(maxBytes, space.capacity - space.capacity / 10);
}

void AwsCache::Use(const std::vector<std::string>& paths) {
  const boost::lock_guard<boost::mutex> guard(lock);
  for (const std::string& path : paths) {
    const auto known = byPath.find(fs::path(path).generic_string());
    if (known == byPath.end()) continue;
    ScannedFile used = *known->second;
    used.modified = NowSeconds();
    files.erase(known->second);
    known->second = files.insert(used);
  }
}

void AwsCache::MakeRoom(std::uint64_t bytes) try {
  const boost::lock_guard<boost::mutex> guard(lock);
  ScannedFile coming;
  coming.size = bytes;
  Trim(coming, retentionSeconds);
} catch (const fs::filesystem_error&) {
  // Tried again at the next file.
}

void AwsCache::GiveUpTenth() try {
  const boost::lock_guard<boost::mutex> guard(lock);
  TrimBySize({}, totalBytes);
} catch (const fs::filesystem_error&) {
  // Likewise.
}

void AwsCache::TrimByAge(const ScannedFile& file, std::int64_t retention) {
  const std::int64_t now = NowSeconds();
  for (Entry entry = files.begin(); entry != files.end();) {
    if (entry->path == file.path) {
      ++entry;
      continue;
    }
    if (entry->modified != 0 && Distance(now, entry->modified) < retention) return;
    Remove(entry, "");
  }
}

void AwsCache::TrimBySize(const ScannedFile& file, std::uint64_t limit) {
  const double target = kTrimmedShare * static_cast<double>(limit);
  Entry entry = files.begin();
  while (entry != files.end() && static_cast<double>(Sum(file.size, totalBytes)) > target) {
    if (entry->path == file.path) {
      ++entry;
    } else {
      Remove(entry, "*");
    }
  }
}

void AwsCache::Remove(Entry& entry, const char* mark) {
  const Entry gone = entry++;
  std::string error;
  if (!CLocalDiskScanner().RemoveFile(gone->path, error)) return;
  if (gone->size <= totalBytes) totalBytes -= gone->size;
  LogPrintf(LogTrace, "[%s] cache- file=%s size=%llu count=%d %stotal=%llu", fullName.c_str(),
            gone->path.string().c_str(), static_cast<unsigned long long>(gone->size),
            static_cast<int>(files.size()) - 1, mark, static_cast<unsigned long long>(totalBytes));
  byPath.erase(gone->path.generic_string());
  files.erase(gone);
}

}  // namespace qvArchiving
