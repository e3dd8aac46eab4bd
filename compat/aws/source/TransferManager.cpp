#include "aws/transfer/TransferManager.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/uuid/uuid_generators.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "TransferTask.h"

namespace Aws::Transfer {

namespace {

String NewId() {
  return boost::algorithm::to_upper_copy(to_string(boost::uuids::random_generator()()));
}

}  // namespace

std::shared_ptr<TransferManager> TransferManager::Create(
    const TransferManagerConfiguration& configuration) {
  return std::shared_ptr<TransferManager>(new TransferManager(configuration));
}

void TransferManager::Start(const std::shared_ptr<TransferHandle>& handle) {
  const auto task = std::make_shared<TransferTask>(shared_from_this(), handle);
  config.transferExecutor->Submit([task] { task->Run(); });
}

std::shared_ptr<TransferHandle> TransferManager::UploadFile(
    const String& fileName, const String& bucketName, const String& keyName,
    const String& contentType, const Map<String, String>& metadata,
    const std::shared_ptr<const Client::AsyncCallerContext>& context) {
  auto handle = std::make_shared<TransferHandle>();
  handle->direction = TransferDirection::UPLOAD;
  handle->bucket = bucketName;
  handle->key = keyName;
  handle->targetFile = fileName;
  handle->id = NewId();
  handle->contentType = contentType;
  handle->metadata = metadata;
  handle->context = context;
  std::ifstream file = OpenFile(fileName, std::ios::ate);
  if (const std::streamoff size = file.tellg(); file && size >= 0) {
    handle->total = static_cast<std::uint64_t>(size);
    Start(handle);
    return handle;
  }
  handle->lastError = {S3::S3Errors::INTERNAL_FAILURE, "",
                       "The requested file could not be opened.", false};
  TransferTask::Report(*this, handle, TransferStatus::FAILED);
  return handle;
}

std::shared_ptr<TransferHandle> TransferManager::DownloadFile(
    const String& bucketName, const String& keyName, CreateDownloadStreamCallback writeToStream,
    const DownloadConfiguration& downloadConfig, const String& writeToFile,
    const std::shared_ptr<const Client::AsyncCallerContext>& context) {
  return DownloadFile(bucketName, keyName, 0, 0, std::move(writeToStream), downloadConfig,
                      writeToFile, context);
}

std::shared_ptr<TransferHandle> TransferManager::DownloadFile(
    const String& bucketName, const String& keyName, std::uint64_t fileOffset,
    std::uint64_t downloadBytes, CreateDownloadStreamCallback writeToStream,
    const DownloadConfiguration&, const String& writeToFile,
    const std::shared_ptr<const Client::AsyncCallerContext>& context) {
  auto handle = std::make_shared<TransferHandle>();
  handle->direction = TransferDirection::DOWNLOAD;
  handle->bucket = bucketName;
  handle->key = keyName;
  handle->targetFile = writeToFile;
  handle->id = NewId();
  handle->offset = fileOffset;
  handle->requestedSize = downloadBytes;
  handle->total = downloadBytes;
  handle->createStream = std::move(writeToStream);
  handle->context = context;
  Start(handle);
  return handle;
}

std::shared_ptr<TransferHandle> TransferManager::RetryUpload(
    const String&, const std::shared_ptr<TransferHandle>& handle) {
  Retry(handle);
  return handle;
}

std::shared_ptr<TransferHandle> TransferManager::RetryDownload(
    const std::shared_ptr<TransferHandle>& handle) {
  Retry(handle);
  return handle;
}

void TransferManager::Retry(const std::shared_ptr<TransferHandle>& handle) {
  {
    const std::lock_guard guard(handle->lock);
    if (!handle->IsFinished() || handle->status == TransferStatus::COMPLETED) return;
    handle->status = TransferStatus::NOT_STARTED;
    handle->cancelled = false;
    handle->lockedForCompletion = false;
  }
  TransferTask::Report(*this, handle, TransferStatus::NOT_STARTED);
  Start(handle);
}

}  // namespace Aws::Transfer
