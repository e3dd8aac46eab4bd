#include "archiving/AwsScanner.h"

#include <aws/core/auth/AWSCredentials.h>
#include <aws/core/utils/memory/AWSMemory.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "archiving/AwsAddress.h"
#include "host/Log.h"
#include "platform/Threads.h"

namespace qvArchiving {

namespace fs = boost::filesystem;
using Aws::Transfer::TransferManager;
using qvsvr::kelvo::LogError;
using qvsvr::kelvo::LogPrintf;

namespace {

constexpr char kTag[] = "AwsScanner";
constexpr std::size_t kThreads = 4;
constexpr std::uint64_t kBufferHeap = 50u << 20;
constexpr std::uint64_t kPartSize = 5u << 20;
constexpr std::size_t kMaxWorkingPaths = 2;
constexpr char kWorking[] = "working";

}  // namespace

Background::~Background() {
  for (Worker& worker : workers) worker.thread.join();
}

void Background::Run(const std::function<void()>& task) {
  const auto begin = [&]() -> bool {
    const std::lock_guard guard(lock);
    workers.remove_if([](Worker& worker) {
      if (worker.over) worker.thread.join();
      return worker.over;
    });
    Worker& worker = workers.emplace_back();
    try {
      worker.thread = std::thread([this, &worker, task] {
        qv::kelvo::PrepareThread();
        task();
        const std::lock_guard ending(lock);
        worker.over = true;
      });
      return true;
    } catch (const std::system_error&) {
      workers.pop_back();
      return false;
    }
  };
  if (!begin()) task();
}

AwsScanner::AwsScanner(const ScannerProperties& values, const ScannerCallback& sink,
                       qv::kelvo::Platform& system)
    : IScanner(values, sink), fullName(PropertyOr(values, property::kFullName)), platform(system) {
  CheckAddress();
  if (properties.contains(property::kCacheEnable)) cache = AwsCache::Of(properties, platform);
  events = std::make_shared<TransferEvents>(*this, fullName, cache, callback, platform.clock);
  const Aws::Auth::AWSCredentials credentials(ToAws(PropertyOr(properties, property::kUserName)),
                                              ToAws(PropertyOr(properties, property::kPassword)));
  s3Client = Aws::MakeShared<Aws::S3::S3Client>(
      kTag, credentials, clientConfig, Aws::Client::AWSAuthV4Signer::PayloadSigningPolicy::Never,
      true);
  SetUpTransfers();
}

AwsScanner::~AwsScanner() {
  s3Client->DisableRequestProcessing();
  events->Close();
}

void AwsScanner::NoteUse(const std::vector<std::string>& paths) {
  if (cache != nullptr) cache->Use(paths);
}

void AwsScanner::CheckAddress() {
  if (!CheckRequiredProperties({property::kFullName, property::kFullyMountedPath,
                                property::kUserName, property::kPassword})) {
    LogPrintf(LogError, "Required property missing");
    throw std::invalid_argument("required property missing");
  }
  clientConfig.verifySSL = PropertyOr(properties, property::kVerifySSL) == "true";
  const AwsAddress address = ParseAddress(fullName);
  if (address.region.empty()) {
    LogPrintf(LogError, "Invalid S3 path = %s", Name());
    throw std::invalid_argument("required valid s3 path missing");
  }
  clientConfig.region = ToAws(address.region);
  locationConstraint = address.constraint;
  bucket = address.bucket;
  if (bucket.empty()) {
    LogPrintf(LogError, "Invalid name property = %s", Name());
    throw std::invalid_argument("Invalid name property");
  }
  if (PropertyOr(properties, property::kUserName).empty()) {
    LogPrintf(LogError, "Invalid empty user property");
    throw std::invalid_argument("Invalid user property");
  }
  if (PropertyOr(properties, property::kPassword).empty()) {
    LogPrintf(LogError, "Invalid empty password property");
    throw std::invalid_argument("Invalid password property");
  }
}

void AwsScanner::SetUpTransfers() {
  using Handle = TransferEvents::Handle;
  executor = std::make_unique<Aws::Utils::Threading::PooledThreadExecutor>(kThreads);
  transferConfig = std::make_shared<Aws::Transfer::TransferManagerConfiguration>(executor.get());
  transferConfig->s3Client = s3Client;
  transferConfig->transferBufferMaxHeapSize = kBufferHeap;
  transferConfig->bufferSize = kPartSize;
  transferConfig->transferStatusUpdatedCallback = [sink = events](const TransferManager*,
                                                                  const Handle& handle) {
    sink->OnTransferStatus(handle);
  };
  if (callback) {
    const auto progress = [sink = events](const TransferManager*, const Handle& handle) {
      sink->OnTransferProgress(handle);
    };
    transferConfig->uploadProgressCallback = progress;
    transferConfig->downloadProgressCallback = progress;
    transferConfig->errorCallback = [sink = events](const TransferManager*, const Handle& handle,
                                                    const StoreError&) {
      sink->OnTransferError(handle);
    };
  }
  transferManager = TransferManager::Create(*transferConfig);
}

std::string AwsScanner::MakeKey(const fs::path& path) const {
  std::string key = ForwardSlashes(path);
  std::string mount = ForwardSlashes(PropertyOr(properties, property::kFullyMountedPath));
  while (mount.ends_with('/')) mount.pop_back();
  if (key.find(mount) == std::string::npos) return key;
  return mount.size() < key.size() ? key.substr(mount.size() + 1) : std::string();
}

bool AwsScanner::SetPermissions(const fs::path& path, std::uint32_t mode, std::string&) {
  LogPrintf(LogError, "[%s] SetPermissions path=%s val=%08X - NOT IMPLEMENTED", Name(),
            path.string().c_str(), mode);
  return true;
}

bool AwsScanner::GetMountPath(fs::path& path) {
  path = ForwardSlashes(PropertyOr(properties, property::kFullyMountedPath));
  return true;
}

bool AwsScanner::GetRemoteName(fs::path& name) {
  name = fullName;
  return true;
}

bool AwsScanner::IsWithinMount(const fs::path& path) {
  fs::path base;
  GetMountPath(base);
  if (base.filename() == ".") base = base.parent_path();
  const fs::path candidate = fs::path(ForwardSlashes(path)).parent_path();
  if (std::distance(base.begin(), base.end()) > std::distance(candidate.begin(), candidate.end())) {
    return false;
  }
  return std::equal(base.begin(), base.end(), candidate.begin());
}

bool AwsScanner::IsSameTarget(const ScannerProperties& other) {
  for (const char* key : {property::kFullName, property::kUserName}) {
    const auto mine = properties.find(key);
    const auto theirs = other.find(key);
    if (mine == properties.end() || theirs == other.end()) continue;
    if (mine->second != theirs->second) return false;
  }
  const auto mine = properties.find(property::kPassword);
  const auto theirs = other.find(property::kPassword);
  return mine == properties.end() || theirs == other.end() || mine->second == theirs->second;
}

bool AwsScanner::SuppressesWorkingFiles() const {
  return properties.contains(property::kSuppressWorkingFiles);
}

void AwsScanner::RememberWorking(const fs::path& path) {
  const std::lock_guard guard(workingLock);
  workingPaths.push_front(path);
  while (workingPaths.size() > kMaxWorkingPaths) workingPaths.pop_back();
}

void AwsScanner::ForgetWorking(const fs::path& path) {
  const std::lock_guard guard(workingLock);
  std::erase(workingPaths, path);
}

bool AwsScanner::IsWorking(const fs::path& finalPath) const {
  const std::lock_guard guard(workingLock);
  for (const fs::path& path : workingPaths) {
    std::string text = path.string();
    if (EraseWorking(text) && text == finalPath.string()) return true;
  }
  return false;
}

bool AwsScanner::EraseWorking(std::string& text) {
  const std::size_t place = text.find(kWorking);
  if (place == std::string::npos) return false;
  text.erase(place, sizeof(kWorking) - 1);
  return true;
}

}  // namespace qvArchiving
