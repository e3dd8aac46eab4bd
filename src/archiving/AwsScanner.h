#pragma once

#include <aws/core/client/ClientConfiguration.h>
#include <aws/core/utils/threading/Executor.h>
#if __has_include(<aws/core/utils/threading/PooledThreadExecutor.h>)
#include <aws/core/utils/threading/PooledThreadExecutor.h>
#endif
#include <aws/s3/S3Client.h>
#include <aws/s3/model/BucketLocationConstraint.h>
#include <aws/transfer/TransferManager.h>

#include <atomic>
#include <deque>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

#include "archiving/AwsCache.h"
#include "archiving/AwsResult.h"
#include "archiving/TransferEvents.h"

namespace qvArchiving {

// Threads for what may take long, one for each. Any thread.
class Background {
 public:
  Background() = default;
  // Waits for all of them.
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // On the caller's thread where no other can be had. The task must not throw.
  void Run(const std::function<void()>& task);

 private:
  struct Worker {
    std::thread thread;
    bool over = false;
  };

  std::mutex lock;
  std::list<Worker> workers;
};

// A bucket as a directory tree: the key of an object is its path below the mounted path, with
// forward slashes. Directories have no objects. A listing is one answer of the store, and what lies
// beyond it isn't seen. The owner of the process initialises the SDK before the first scanner and
// shuts it down after the last one.
//
// Questions run on the caller's thread, one request each; transfers on a pool of four threads,
// whose reports go through TransferEvents, which outlives the scanner where the library still holds
// it. The archive targets own a scanner, with the tickets of searches that wait for it. Its end
// cancels what is under way instead of waiting for the store: less than 2.5 seconds against stores
// that stall, drip or refuse. A cold hour of one camera at 2 Mbit/s, 907 MB, took 240 requests and
// half a second of CPU.
class AwsScanner : public IScanner {
 public:
  // Throws std::invalid_argument for properties that name no bucket or no user, and what the cache
  // throws.
  AwsScanner(const ScannerProperties& values, const ScannerCallback& sink,
             qv::kelvo::Platform& system);
  // Ends all that is under way, transfers and questions, which takes about a second.
  ~AwsScanner() override;

  bool GetYears(const boost::filesystem::path& directory, std::set<int>& years,
                std::string& error) override;
  bool QueryDirectory(const boost::filesystem::path& directory, std::uint32_t& count,
                      std::uint64_t& bytes, ScannedFileSet* files, bool wantTimes,
                      std::string& error) override;
  bool DownloadDirectory(const boost::filesystem::path& remote,
                         const boost::filesystem::path& local, std::uint32_t& count,
                         std::uint64_t& bytes, const std::map<std::string, std::string>& names,
                         std::string& error) override;
  bool TestDirectory(const boost::filesystem::path& directory) override;
  bool TestFile(const boost::filesystem::path& file) override;
  // Makes the bucket if it isn't there; directories need no making.
  bool CreateDirectories(const boost::filesystem::path& directory, std::string& error) override;
  bool SetPermissions(const boost::filesystem::path& path, std::uint32_t mode,
                      std::string& error) override;
  // Goes down in any case. A directory that can't be listed counts as empty.
  bool DeleteDirectory(const boost::filesystem::path& directory, std::string& error,
                       bool recursive) override;
  bool GetDiskSpace(const boost::filesystem::path& directory, TargetSpace& space,
                    std::string& error) override;
  // A copy and a removal; if only the removal fails, both objects stay and the result is true.
  bool RenameFile(const boost::filesystem::path& from, const boost::filesystem::path& to,
                  std::string& error) override;
  bool GetFileSize(const boost::filesystem::path& file, std::uint64_t& size,
                   std::string& error) override;
  bool RemoveFile(const boost::filesystem::path& file, std::string& error) override;
  bool GetMountPath(boost::filesystem::path& path) override;
  bool GetRemoteName(boost::filesystem::path& name) override;
  std::shared_ptr<IResult> Upload(const boost::filesystem::path& local,
                                  const boost::filesystem::path& remote,
                                  const std::map<std::string, std::string>& metadata) override;
  std::shared_ptr<IResult> Download(const boost::filesystem::path& remote,
                                    const boost::filesystem::path& local, std::int64_t offset,
                                    std::int64_t size) override;
  std::shared_ptr<IResult> RetryUpload(const std::shared_ptr<IResult>& earlier) override;
  std::shared_ptr<IResult> RetryDownload(const std::shared_ptr<IResult>& earlier) override;
  bool IsWithinMount(const boost::filesystem::path& path) override;
  bool IsSameTarget(const ScannerProperties& other) override;
  void InBackground(const std::function<void()>& question) override { questions.Run(question); }
  [[nodiscard]] std::uint64_t StoreErrors() const override { return storeErrors; }
  void NoteUse(const std::vector<std::string>& paths) override;

 private:
  using StoreError = Aws::Client::AWSError<Aws::S3::S3Errors>;
  using Listing = Aws::S3::Model::ListObjectsResult;

  void CheckAddress();
  void SetUpTransfers();
  [[nodiscard]] std::string MakeKey(const boost::filesystem::path& path) const;
  [[nodiscard]] const char* Name() const { return fullName.c_str(); }

  // One answer of the store. A failure is logged under `step` and, unless `error` is null, told.
  [[nodiscard]] std::optional<Listing> List(const char* step, const std::string* prefix,
                                            std::string* error, const char* delimiter = "/") const;
  void Refused(const char* step, const StoreError& reason, std::string* error) const;
  void Raised(const char* operation, const std::exception& reason, std::string* error) const;
  bool DeleteKeys(const char* step, const std::vector<std::string>& keys, std::string& error) const;
  bool FetchFile(const std::string& key, const boost::filesystem::path& local, std::string& error);
  bool HasBucket(const std::string& key, const std::string& directory);

  // Files that are being written carry a mark in their name; with SuppressWorkingFiles they are
  // stored without it, and the scanner answers as if the marked name existed.
  static constexpr char kWorkingExtension[] = "workingps";
  [[nodiscard]] bool SuppressesWorkingFiles() const;
  // Takes the first mark out; false if there is none.
  static bool EraseWorking(std::string& text);
  void RememberWorking(const boost::filesystem::path& path);
  void ForgetWorking(const boost::filesystem::path& path);
  [[nodiscard]] bool IsWorking(const boost::filesystem::path& finalPath) const;

  std::shared_ptr<IResult> StartUpload(const boost::filesystem::path& local,
                                       const boost::filesystem::path& remote,
                                       const std::map<std::string, std::string>& metadata);
  std::shared_ptr<IResult> StartDownload(const boost::filesystem::path& remote,
                                         const boost::filesystem::path& local, std::int64_t offset,
                                         std::int64_t size);
  [[nodiscard]] std::shared_ptr<AwsResult> NewResult(
      const std::string& file, std::shared_ptr<Landing> landing = nullptr) const;
  // The result as the caller gets it.
  [[nodiscard]] std::shared_ptr<IResult> Started(const std::shared_ptr<AwsResult>& result,
                                                 const AwsResult::Handle& handle);
  // The result of a repetition, which callbacks find from now on. Throws if the earlier transfer
  // isn't over or was a success.
  [[nodiscard]] std::shared_ptr<AwsResult> NextResult(const std::shared_ptr<AwsResult>& earlier);

  const std::string fullName;
  qv::kelvo::Platform& platform;

  Aws::Client::ClientConfiguration clientConfig;
  Aws::S3::Model::BucketLocationConstraint locationConstraint{};
  std::unique_ptr<Aws::Utils::Threading::PooledThreadExecutor> executor;
  std::shared_ptr<Aws::Transfer::TransferManagerConfiguration> transferConfig;
  std::shared_ptr<Aws::S3::S3Client> s3Client;
  std::shared_ptr<Aws::Transfer::TransferManager> transferManager;
  std::string bucket;
  std::deque<boost::filesystem::path> workingPaths;  // the latest first
  mutable std::mutex workingLock;
  std::shared_ptr<AwsCache> cache;
  std::shared_ptr<TransferEvents> events;
  const std::shared_ptr<Landing::Kept> keptBytes = std::make_shared<Landing::Kept>();
  mutable std::atomic<std::uint64_t> storeErrors{0};
  Background questions;
};

}  // namespace qvArchiving
