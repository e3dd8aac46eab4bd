#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "aws/core/client/AsyncCallerContext.h"
#include "aws/core/utils/memory/stl/AWSMap.h"
#include "aws/core/utils/memory/stl/AWSStreamFwd.h"
#include "aws/core/utils/memory/stl/AWSString.h"
#include "aws/core/utils/memory/stl/AWSVector.h"
#include "aws/s3/S3Errors.h"

namespace Aws::Transfer {

enum class TransferStatus {
  EXACT_OBJECT_ALREADY_EXISTS,
  NOT_STARTED,
  IN_PROGRESS,
  CANCELED,
  FAILED,
  COMPLETED,
  ABORTED
};

enum class TransferDirection { UPLOAD, DOWNLOAD };

// Made for each stream that is needed; the library frees it with Aws::Delete.
using CreateDownloadStreamCallback = std::function<IOStream*()>;

// One transfer. Any thread.
class TransferHandle {
 public:
  TransferHandle(TransferDirection way, String bucketName, String objectKey, String file);
  ~TransferHandle();
  TransferHandle(const TransferHandle&) = delete;
  TransferHandle& operator=(const TransferHandle&) = delete;

  void WaitUntilFinished() const;
  void Cancel() { cancelled = true; }
  // True for the first caller since the transfer was started or repeated.
  bool LockForCompletion();
  [[nodiscard]] std::uint64_t GetBytesTransferred() const;
  [[nodiscard]] std::uint64_t GetBytesTotalSize() const;
  [[nodiscard]] S3::S3Error GetLastError() const;
  [[nodiscard]] String GetId() const { return id; }
  [[nodiscard]] TransferStatus GetStatus() const;
  [[nodiscard]] Map<String, String> GetMetadata() const;
  [[nodiscard]] const String& GetKey() const { return key; }
  [[nodiscard]] bool IsMultipart() const;
  [[nodiscard]] TransferDirection GetTransferDirection() const { return direction; }
  [[nodiscard]] std::shared_ptr<const Client::AsyncCallerContext> GetContext() const {
    return context;
  }

 private:
  friend class TransferManager;
  friend class TransferTask;

  [[nodiscard]] bool IsFinished() const;  // with the lock held

  // Set before the transfer starts.
  const TransferDirection direction;
  const String bucket;
  const String key;
  const String targetFile;
  const String id;
  String contentType;
  std::uint64_t offset = 0;
  std::uint64_t requestedSize = 0;  // 0: to the end
  CreateDownloadStreamCallback createStream;
  std::shared_ptr<const Client::AsyncCallerContext> context;

  mutable std::mutex lock;
  mutable std::condition_variable finished;
  TransferStatus status = TransferStatus::NOT_STARTED;
  S3::S3Error lastError;
  Map<String, String> metadata;
  std::uint64_t transferred = 0;
  std::uint64_t total = 0;
  bool multipart = false;
  std::atomic<bool> cancelled{false};
  bool lockedForCompletion = false;

  // What a repetition goes on with; of the running task only.
  bool sized = false;
  String uploadId;
  Vector<String> partTags;           // empty: not done yet
  std::shared_ptr<IOStream> stream;  // of a download in parts
  std::streamoff streamBase = 0;
};

}  // namespace Aws::Transfer
