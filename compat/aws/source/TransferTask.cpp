#include "TransferTask.h"

#include <algorithm>
#include <exception>

namespace Aws::Transfer {

using Compat::Request;
using Compat::Response;
using Compat::S3Result;
using S3::S3Error;

namespace {

constexpr char kMetadataPrefix[] = "x-amz-meta-";

}  // namespace

TransferTask::TransferTask(std::shared_ptr<const TransferManager> owner,
                           std::shared_ptr<TransferHandle> subject)
    : manager(std::move(owner)),
      handle(std::move(subject)),
      channel(*manager->config.s3Client->StandInChannel()) {}

TransferTask::~TransferTask() {
  if (!ran) Report(TransferStatus::CANCELED);
}

void TransferTask::Run() {
  ran = true;
  bool well = false;
  try {
    if (handle->cancelled) {
      Refuse(Compat::CancelledError());
    } else {
      well = handle->direction == TransferDirection::DOWNLOAD ? Download() : Upload();
    }
  } catch (const std::exception& error) {
    Refuse(error.what());
  }
  if (well) handle->stream.reset();
  Report(well                ? TransferStatus::COMPLETED
         : handle->cancelled ? TransferStatus::CANCELED
                             : TransferStatus::FAILED);
}

void TransferTask::Report(const TransferManager& manager,
                          const std::shared_ptr<TransferHandle>& handle, TransferStatus status) {
  {
    const std::lock_guard guard(handle->lock);
    handle->status = status;
    if (handle->IsFinished()) handle->finished.notify_all();
  }
  if (manager.config.transferStatusUpdatedCallback) {
    manager.config.transferStatusUpdatedCallback(&manager, handle);
  }
}

bool TransferTask::Refuse(const S3Error& error) {
  {
    const std::lock_guard guard(handle->lock);
    handle->lastError = error;
  }
  if (manager->config.errorCallback) manager->config.errorCallback(manager.get(), handle, error);
  return false;
}

std::size_t TransferTask::PartCount() const {
  const std::uint64_t size = manager->config.bufferSize;
  return static_cast<std::size_t>((handle->total + size - 1) / size);
}

std::uint64_t TransferTask::PartBytes(std::size_t part) const {
  const std::uint64_t size = manager->config.bufferSize;
  return std::min<std::uint64_t>(size, handle->total - part * size);
}

Request TransferTask::NewRequest(const char* method) const {
  Request request;
  request.method = method;
  request.bucket = handle->bucket;
  request.key = handle->key;
  request.isCancelled = [this] { return handle->cancelled.load(); };
  return request;
}

S3Result<Response> TransferTask::SendCounted(Request& request) {
  std::uint64_t counted = 0;
  const auto uncount = [&] {
    handle->transferred -= counted;
    counted = 0;
  };
  const bool download = handle->direction == TransferDirection::DOWNLOAD;
  const HandleCallback& progress =
      download ? manager->config.downloadProgressCallback : manager->config.uploadProgressCallback;
  const std::function<void()> onAttempt = std::move(request.onAttempt);
  request.onAttempt = [&] {
    uncount();
    if (onAttempt) onAttempt();
  };
  request.onBytes = [&](std::size_t bytes) {
    handle->transferred += bytes;
    counted += bytes;
    if (progress) progress(manager.get(), handle);
  };
  S3Result<Response> outcome = channel.Send(request);
  if (!outcome.IsSuccess()) uncount();
  return outcome;
}

bool TransferTask::AddMetadata(Request& request) {
  request.headers.push_back("Content-Type: " + handle->contentType);
  for (const auto& [name, value] : handle->GetMetadata()) {
    if (value.empty() || name == "ETag") continue;
    std::string line = kMetadataPrefix;
    line.append(name).append(": ").append(value);
    if (line.find_first_of("\r\n") != std::string::npos)
      return Refuse("The metadata can't be sent.");
    request.headers.push_back(line);
  }
  return true;
}

void TransferTask::KeepMetadata(const Response& response) {
  const std::size_t prefix = sizeof(kMetadataPrefix) - 1;
  const std::lock_guard guard(handle->lock);
  for (const auto& [name, value] : response.headers) {
    if (name == "etag") handle->metadata["ETag"] = value;
    if (name.starts_with(kMetadataPrefix)) handle->metadata[name.substr(prefix)] = value;
  }
}

bool TransferTask::RunParts(const std::function<bool(std::size_t)>& work) {
  for (std::size_t part = 0; part < PartCount(); ++part) {
    if (!handle->partTags[part].empty()) continue;
    if (handle->cancelled) return Refuse(Compat::CancelledError());
    if (!work(part)) return false;
    Report(TransferStatus::IN_PROGRESS);
  }
  return !handle->cancelled;
}

}  // namespace Aws::Transfer
