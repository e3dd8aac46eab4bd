#include <aws/s3/model/CopyObjectRequest.h>
#include <aws/s3/model/CreateBucketRequest.h>
#include <aws/s3/model/DeleteObjectsRequest.h>
#include <aws/s3/model/GetObjectRequest.h>
#include <aws/s3/model/ListObjectsRequest.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>

#include "archiving/AwsAddress.h"
#include "archiving/AwsScanner.h"
#include "archiving/CLocalDiskScanner.h"
#include "host/Log.h"

namespace qvArchiving {

namespace fs = boost::filesystem;
namespace Model = Aws::S3::Model;
using qvsvr::kelvo::LogError;
using qvsvr::kelvo::LogPrintf;
using qvsvr::kelvo::LogTrace;

namespace {

constexpr int kFirstYear = 1970;
constexpr int kLastYear = 2100;
constexpr std::uint64_t kCapacity = std::uint64_t{1} << 50;
constexpr std::size_t kMaxKey = 1024;  // bytes, of any store

std::uint64_t SizeOf(const Model::Object& object) {
  return static_cast<std::uint64_t>(std::max<long long>(0, object.GetSize()));
}

std::string WithSlash(std::string key) {
  if (!key.empty() && !key.ends_with('/')) key += '/';
  return key;
}

// The prefix whose listing shows the key itself; null at the top level.
struct ParentPrefix {
  explicit ParentPrefix(const std::string& key) {
    const std::size_t slash = key.rfind('/');
    exists = slash != std::string::npos;
    if (exists) text = key.substr(0, slash + 1);
  }
  [[nodiscard]] const std::string* get() const { return exists ? &text : nullptr; }

  std::string text;
  bool exists;
};

}  // namespace

void AwsScanner::Refused(const char* step, const StoreError& reason, std::string* error) const {
  ++storeErrors;
  const std::string message = FromAws(reason.GetMessage());
  LogPrintf(LogError, "[%s] %s error: %s %s", Name(), step,
            FromAws(reason.GetExceptionName()).c_str(), message.c_str());
  if (error != nullptr) *error = message;
}

void AwsScanner::Raised(const char* operation, const std::exception& reason,
                        std::string* error) const {
  LogPrintf(LogError, "[%s] %s error: %s", Name(), operation, reason.what());
  if (error != nullptr) *error = reason.what();
}

std::optional<AwsScanner::Listing> AwsScanner::List(const char* step, const std::string* prefix,
                                                    std::string* error,
                                                    const char* delimiter) const {
  Model::ListObjectsRequest request;
  request.SetBucket(ToAws(bucket));
  if (delimiter != nullptr) request.SetDelimiter(delimiter);
  if (prefix != nullptr) request.SetPrefix(ToAws(*prefix));
  auto outcome = s3Client->ListObjects(request);
  if (outcome.IsSuccess()) return outcome.GetResultWithOwnership();
  Refused(step, outcome.GetError(), error);
  return std::nullopt;
}

bool AwsScanner::GetYears(const fs::path& directory, std::set<int>& years, std::string& error) try {
  const std::string key = MakeKey(directory);
  LogPrintf(LogTrace, "[%s] GetYears key=%s", Name(), key.c_str());
  const std::optional<Listing> listing = List("GetYears, ListObjects", &key, &error);
  if (!listing) return false;
  for (const Model::CommonPrefix& entry : listing->GetCommonPrefixes()) {
    const std::string prefix = FromAws(entry.GetPrefix());
    if (!prefix.ends_with('/')) continue;
    try {
      const int year = ParseDecimal(prefix);
      if (year >= kFirstYear && year <= kLastYear) years.insert(year);
    } catch (const std::exception&) {
      // No year.
    }
  }
  return true;
} catch (const std::exception& reason) {
  Raised("GetYears", reason, &error);
  return false;
}

bool AwsScanner::QueryDirectory(const fs::path& directory, std::uint32_t& count,
                                std::uint64_t& bytes, ScannedFileSet* files, bool wantTimes,
                                std::string& error) try {
  error.clear();
  count = std::numeric_limits<std::uint32_t>::max();
  bytes = 0;
  const std::string key = WithSlash(MakeKey(directory));
  LogPrintf(LogTrace, "[%s] QueryDirectory key=%s", Name(), key.c_str());
  const std::optional<Listing> listing = List("QueryDirectory, ListObjects", &key, &error);
  if (!listing) return false;
  for (const Model::Object& object : listing->GetContents()) {
    try {
      if (files != nullptr) {
        const fs::path path = FromAws(object.GetKey());
        const std::int64_t modified = wantTimes ? object.GetLastModified().Seconds() : 0;
        files->insert({path, path.filename().string(), SizeOf(object), true, modified});
      }
      // From -1 on, so that a directory's own marker object doesn't count.
      ++count;
      bytes += SizeOf(object);
    } catch (const std::exception&) {
      // The others stand.
    }
  }
  return true;
} catch (const std::exception& reason) {
  Raised("QueryDirectory", reason, &error);
  return false;
}

bool AwsScanner::DownloadDirectory(const fs::path& remote, const fs::path& local,
                                   std::uint32_t& count, std::uint64_t& bytes,
                                   const std::map<std::string, std::string>& names,
                                   std::string& error) try {
  error.clear();
  count = std::numeric_limits<std::uint32_t>::max();
  bytes = 0;
  if (!CLocalDiskScanner().CreateDirectories(local, error)) return false;
  for (const auto& entry : names) {
    const std::string& name = entry.second;
    if (name.empty() || fs::path(name).filename() != name || name == "." || name == "..") {
      throw std::invalid_argument("no file name: " + name);
    }
    const fs::path target = local / name;
    if (!FetchFile(MakeKey(remote / name), target, error)) return false;
    count = count == std::numeric_limits<std::uint32_t>::max() ? 1 : count + 1;
    bytes += fs::file_size(target);
  }
  return true;
} catch (const std::exception& reason) {
  Raised("DownloadDirectory", reason, &error);
  return false;
}

bool AwsScanner::FetchFile(const std::string& key, const fs::path& local, std::string& error) {
  LogPrintf(LogTrace, "[%s] DownloadDirectory key=%s local=%s", Name(), key.c_str(),
            local.string().c_str());
  Model::GetObjectRequest request;
  request.SetBucket(ToAws(bucket));
  request.SetKey(ToAws(key));
  const auto outcome = s3Client->GetObject(request);
  if (!outcome.IsSuccess()) {
    Refused("DownloadDirectory, GetObject", outcome.GetError(), &error);
    return false;
  }
  // The library's own streams take narrow names only, in some other encoding.
  std::ofstream file(std::filesystem::path(local.native()), std::ios::binary | std::ios::trunc);
  std::copy(std::istreambuf_iterator<char>(outcome.GetResult().GetBody()), {},
            std::ostreambuf_iterator<char>(file));
  file.close();
  if (!file) throw std::runtime_error("cannot write " + local.string());
  return true;
}

bool AwsScanner::HasBucket(const std::string& key, const std::string& directory) {
  const auto outcome = s3Client->ListBuckets();
  if (!outcome.IsSuccess()) {
    Refused("TestDirectory, GetBuckets", outcome.GetError(), nullptr);
    return false;
  }
  const auto& buckets = outcome.GetResult().GetBuckets();
  const bool found = std::any_of(buckets.begin(), buckets.end(), [this](const auto& entry) {
    return FromAws(entry.GetName()) == bucket;
  });
  LogPrintf(LogTrace, "[%s] TestDirectory key=%s dir=%s found=%s", Name(), key.c_str(),
            directory.c_str(), found ? "true" : "false");
  return found;
}

bool AwsScanner::TestDirectory(const fs::path& directory) try {
  std::string key = MakeKey(directory);
  while (key.ends_with('/')) key.pop_back();
  const std::string shown = ForwardSlashes(directory);
  if (key.empty()) return HasBucket(key, shown);
  const ParentPrefix parent(key);
  const std::optional<Listing> listing = List("TestDirectory, ListObjects", parent.get(), nullptr);
  if (!listing) return false;
  const auto& prefixes = listing->GetCommonPrefixes();
  const bool found = std::any_of(prefixes.begin(), prefixes.end(), [&key](const auto& entry) {
    return FromAws(entry.GetPrefix()) == key + "/";
  });
  LogPrintf(LogTrace, "[%s] TestDirectory key=%s dir=%s found=%s", Name(), key.c_str(),
            shown.c_str(), found ? "true" : "false");
  return found;
} catch (const std::exception& reason) {
  Raised("TestDirectory", reason, nullptr);
  return false;
}

bool AwsScanner::TestFile(const fs::path& file) {
  const std::string key = MakeKey(file);
  if (!key.empty()) {
    LogPrintf(LogTrace, "[%s] TestFile path=%s key=%s", Name(), file.string().c_str(), key.c_str());
  }
  const ParentPrefix parent(key);
  const std::optional<Listing> listing = List("TestDirectory, ListObjects", parent.get(), nullptr);
  if (!listing) return false;
  const auto& objects = listing->GetContents();
  return std::any_of(objects.begin(), objects.end(), [&key](const Model::Object& object) {
    return FromAws(object.GetKey()) == key;
  });
}

bool AwsScanner::CreateDirectories(const fs::path& directory, std::string& error) {
  const std::string key = MakeKey(directory);
  if (!key.empty()) {
    LogPrintf(LogTrace, "[%s] CreateDirectories key=%s", Name(), key.c_str());
    return true;
  }
  if (TestDirectory(directory)) return true;
  Model::CreateBucketConfiguration configuration;
  configuration.SetLocationConstraint(locationConstraint);
  Model::CreateBucketRequest request;
  request.SetBucket(ToAws(bucket));
  request.SetCreateBucketConfiguration(configuration);
  const auto outcome = s3Client->CreateBucket(request);
  if (outcome.IsSuccess()) return true;
  Refused("CreateDirectories, CreateBucket", outcome.GetError(), &error);
  return false;
}

bool AwsScanner::DeleteKeys(const char* step, const std::vector<std::string>& keys,
                            std::string& error) const {
  if (keys.empty()) return true;
  Model::Delete list;
  for (const std::string& key : keys) {
    Model::ObjectIdentifier object;
    object.SetKey(ToAws(key));
    list.AddObjects(object);
  }
  Model::DeleteObjectsRequest request;
  request.SetBucket(ToAws(bucket));
  request.SetDelete(list);
  const auto outcome = s3Client->DeleteObjects(request);
  if (!outcome.IsSuccess()) {
    Refused(step, outcome.GetError(), &error);
    return false;
  }
  // The request as a whole can succeed while the store keeps objects.
  for (const Model::Error& kept : outcome.GetResult().GetErrors()) {
    error = FromAws(kept.GetMessage());
    LogPrintf(LogError, "[%s] %s error: %s %s", Name(), step, FromAws(kept.GetCode()).c_str(),
              error.c_str());
    return false;
  }
  return true;
}

bool AwsScanner::DeleteDirectory(const fs::path& directory, std::string& error,
                                 bool recursive) try {
  std::string key = MakeKey(directory);
  if (recursive) key = WithSlash(key);
  if (SuppressesWorkingFiles() && IsWorking(directory)) return true;
  LogPrintf(LogTrace, "[%s] DeleteDirectory key=%s", Name(), key.c_str());
  const std::optional<Listing> listing = List("DeleteDirectory, ListObjects", &key, &error);
  if (!listing) return true;
  for (const Model::CommonPrefix& entry : listing->GetCommonPrefixes()) {
    const std::string prefix = FromAws(entry.GetPrefix());
    // A store that answers with what isn't below would have us turn in circles.
    if (prefix.size() <= key.size() || !prefix.starts_with(key) || prefix.size() > kMaxKey) {
      continue;
    }
    DeleteDirectory(prefix, error, recursive);
  }
  std::vector<std::string> keys;
  for (const Model::Object& object : listing->GetContents()) {
    keys.push_back(FromAws(object.GetKey()));
  }
  return DeleteKeys("DeleteDirectory, DeleteObjects", keys, error);
} catch (const std::exception& reason) {
  Raised("DeleteDirectory", reason, nullptr);
  return false;
}

bool AwsScanner::RemoveFile(const fs::path& file, std::string& error) try {
  const std::string key = MakeKey(file);
  LogPrintf(LogTrace, "[%s] RemoveFile key=%s", Name(), key.c_str());
  const std::optional<Listing> listing = List("RemoveFile, ListObjects", &key, &error);
  if (!listing) return true;
  std::vector<std::string> keys;
  for (const Model::Object& object : listing->GetContents()) {
    if (FromAws(object.GetKey()) == key) keys.push_back(key);
  }
  return DeleteKeys("RemoveFile, DeleteObjects", keys, error);
} catch (const std::exception& reason) {
  Raised("RemoveFile", reason, nullptr);
  return false;
}

bool AwsScanner::RenameFile(const fs::path& from, const fs::path& to, std::string& error) try {
  if (SuppressesWorkingFiles() &&
      from.extension().string().find(kWorkingExtension) != std::string::npos) {
    ForgetWorking(from);
    return true;
  }
  const std::string oldKey = MakeKey(from);
  const std::string newKey = MakeKey(to);
  LogPrintf(LogTrace, "[%s] RenameFile old=%s new=%s", Name(), oldKey.c_str(), newKey.c_str());
  Model::CopyObjectRequest request;
  request.SetBucket(ToAws(bucket));
  request.SetKey(ToAws(newKey));
  request.SetCopySource(ToAws(bucket + "/" + oldKey));
  const auto outcome = s3Client->CopyObject(request);
  if (!outcome.IsSuccess()) {
    Refused("RenameFile, PutObject", outcome.GetError(), &error);
    return false;
  }
  RemoveFile(from, error);
  return true;
} catch (const std::exception& reason) {
  Raised("RenameFile", reason, nullptr);
  return false;
}

bool AwsScanner::GetDiskSpace(const fs::path&, TargetSpace& space, std::string& error) try {
  error.clear();
  const std::optional<Listing> listing =
      List("GetDiskSpace, ListObjects", nullptr, &error, nullptr);
  if (!listing) return false;
  std::uint64_t used = 0;
  for (const Model::Object& object : listing->GetContents()) {
    used = std::min(kCapacity, used + std::min(kCapacity, SizeOf(object)));
  }
  space.capacity = kCapacity;
  if (used < kCapacity) space.free = space.available = kCapacity - used;
  return true;
} catch (const std::exception& reason) {
  Raised("GetDiskSpace", reason, &error);
  return false;
}

bool AwsScanner::GetFileSize(const fs::path& file, std::uint64_t& size, std::string& error) try {
  error.clear();
  std::string key = MakeKey(file);
  if (SuppressesWorkingFiles()) EraseWorking(key);
  const std::optional<Listing> listing = List("GetFileSize, ListObjects", &key, &error);
  if (!listing) return false;
  for (const Model::Object& object : listing->GetContents()) {
    if (FromAws(object.GetKey()) != key) continue;
    size = SizeOf(object);
    return true;
  }
  return false;
} catch (const std::exception& reason) {
  Raised("GetFileSize", reason, &error);
  return false;
}

}  // namespace qvArchiving
