#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "aws/core/client/AsyncCallerContext.h"
#include "aws/core/utils/memory/stl/AWSStreamFwd.h"
#include "aws/core/utils/memory/stl/AWSString.h"
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
  void WaitUntilFinished() const {
    std::unique_lock guard(lock);
    finished.wait(guard, [this] { return IsFinished(); });
  }
  void Cancel() { cancelled = true; }
  // True for the first caller since the transfer was started or repeated.
  bool LockForCompletion() { return !lockedForCompletion.exchange(true); }
  [[nodiscard]] std::uint64_t GetBytesTransferred() const { return transferred; }
  [[nodiscard]] std::uint64_t GetBytesTotalSize() const { return total; }
  [[nodiscard]] S3::S3Error GetLastError() const { return Locked(lastError); }
  [[nodiscard]] String GetId() const { return id; }
  [[nodiscard]] TransferStatus GetStatus() const { return Locked(status); }
  [[nodiscard]] Map<String, String> GetMetadata() const { return Locked(metadata); }
  [[nodiscard]] const String& GetKey() const { return key; }
  [[nodiscard]] TransferDirection GetTransferDirection() const { return direction; }
  [[nodiscard]] std::shared_ptr<const Client::AsyncCallerContext> GetContext() const {
    return context;
  }

 private:
  friend class TransferManager;
  friend class TransferTask;

  [[nodiscard]] bool IsFinished() const {  // with the lock held
    return status != TransferStatus::NOT_STARTED && status != TransferStatus::IN_PROGRESS;
  }
  template <typename T>
  [[nodiscard]] T Locked(const T& value) const {
    const std::lock_guard guard(lock);
    return value;
  }

  // Set before the transfer starts.
  TransferDirection direction{};
  String bucket;
  String key;
  String targetFile;
  String id;
  String contentType;
  std::uint64_t offset = 0;
  std::uint64_t requestedSize = 0;  // 0: to the end
  CreateDownloadStreamCallback createStream;
  std::shared_ptr<const Client::AsyncCallerContext> context;

  mutable std::mutex lock;  // of the next four
  mutable std::condition_variable finished;
  TransferStatus status = TransferStatus::NOT_STARTED;
  S3::S3Error lastError;
  Map<String, String> metadata;
  std::atomic<std::uint64_t> transferred{0};
  std::atomic<std::uint64_t> total{0};
  std::atomic<bool> cancelled{false};
  std::atomic<bool> lockedForCompletion{false};

  // What a repetition goes on with; of the running task only.
  bool sized = false;
  String uploadId;
  std::vector<String> partTags;      // empty: not done yet
  std::shared_ptr<IOStream> stream;  // of a download
  std::streamoff streamBase = 0;
};

}  // namespace Aws::Transfer
