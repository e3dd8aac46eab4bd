#include "aws/transfer/TransferHandle.h"

#include <utility>

#include "Text.h"

namespace Aws::Transfer {

TransferHandle::TransferHandle(TransferDirection way, String bucketName, String objectKey,
                               String file)
    : direction(way),
      bucket(std::move(bucketName)),
      key(std::move(objectKey)),
      targetFile(std::move(file)),
      id(Compat::NewUuid()) {}

TransferHandle::~TransferHandle() = default;

bool TransferHandle::IsFinished() const {
  return status != TransferStatus::NOT_STARTED && status != TransferStatus::IN_PROGRESS;
}

void TransferHandle::WaitUntilFinished() const {
  std::unique_lock guard(lock);
  finished.wait(guard, [this] { return IsFinished(); });
}

bool TransferHandle::LockForCompletion() {
  const std::lock_guard guard(lock);
  return !std::exchange(lockedForCompletion, true);
}

std::uint64_t TransferHandle::GetBytesTransferred() const {
  const std::lock_guard guard(lock);
  return transferred;
}

std::uint64_t TransferHandle::GetBytesTotalSize() const {
  const std::lock_guard guard(lock);
  return total;
}

S3::S3Error TransferHandle::GetLastError() const {
  const std::lock_guard guard(lock);
  return lastError;
}

TransferStatus TransferHandle::GetStatus() const {
  const std::lock_guard guard(lock);
  return status;
}

Map<String, String> TransferHandle::GetMetadata() const {
  const std::lock_guard guard(lock);
  return metadata;
}

bool TransferHandle::IsMultipart() const {
  const std::lock_guard guard(lock);
  return multipart;
}

}  // namespace Aws::Transfer
