#pragma once

#include "aws/core/utils/threading/Executor.h"
#include "aws/s3/S3Client.h"
#include "aws/transfer/TransferHandle.h"

namespace Aws::Transfer {

class TransferManager;

using HandleCallback =
    std::function<void(const TransferManager*, const std::shared_ptr<const TransferHandle>&)>;
using UploadProgressCallback = HandleCallback;
using DownloadProgressCallback = HandleCallback;
using TransferStatusUpdatedCallback = HandleCallback;
using ErrorCallback = std::function<void(
    const TransferManager*, const std::shared_ptr<const TransferHandle>&, const S3::S3Error&)>;

struct TransferManagerConfiguration {
  explicit TransferManagerConfiguration(Utils::Threading::PooledThreadExecutor* executor)
      : transferExecutor(executor) {}

  std::shared_ptr<S3::S3Client> s3Client;
  Utils::Threading::PooledThreadExecutor* transferExecutor;
  std::uint64_t transferBufferMaxHeapSize = 50u << 20;  // all part buffers together
  std::uint64_t bufferSize = 5u << 20;                  // larger transfers go in parts of this size
  UploadProgressCallback uploadProgressCallback;
  DownloadProgressCallback downloadProgressCallback;
  TransferStatusUpdatedCallback transferStatusUpdatedCallback;
  ErrorCallback errorCallback;
};

struct DownloadConfiguration {
  String versionId;
};

// Moves files in the background, on the executor's threads.
// Callbacks run on those threads, and on the caller's for what is known at once. Any thread.
class TransferManager : public std::enable_shared_from_this<TransferManager> {
 public:
  static std::shared_ptr<TransferManager> Create(const TransferManagerConfiguration& configuration);

  std::shared_ptr<TransferHandle> UploadFile(
      const String& fileName, const String& bucketName, const String& keyName,
      const String& contentType, const Map<String, String>& metadata,
      const std::shared_ptr<const Client::AsyncCallerContext>& context = nullptr);
  std::shared_ptr<TransferHandle> DownloadFile(
      const String& bucketName, const String& keyName, CreateDownloadStreamCallback writeToStream,
      const DownloadConfiguration& downloadConfig = {}, const String& writeToFile = "",
      const std::shared_ptr<const Client::AsyncCallerContext>& context = nullptr);
  std::shared_ptr<TransferHandle> DownloadFile(
      const String& bucketName, const String& keyName, std::uint64_t fileOffset,
      std::uint64_t downloadBytes, CreateDownloadStreamCallback writeToStream,
      const DownloadConfiguration& downloadConfig = {}, const String& writeToFile = "",
      const std::shared_ptr<const Client::AsyncCallerContext>& context = nullptr);
  // Go on with a transfer that has ended without success; give the same handle.
  std::shared_ptr<TransferHandle> RetryUpload(const String& fileName,
                                              const std::shared_ptr<TransferHandle>& handle);
  std::shared_ptr<TransferHandle> RetryDownload(const std::shared_ptr<TransferHandle>& handle);

 private:
  friend class TransferTask;

  explicit TransferManager(const TransferManagerConfiguration& configuration)
      : config(configuration) {}
  void Start(const std::shared_ptr<TransferHandle>& handle);
  void Retry(const std::shared_ptr<TransferHandle>& handle);

  const TransferManagerConfiguration config;
};

}  // namespace Aws::Transfer
