#include <istream>

#include "TransferTask.h"

namespace Aws::Transfer {

using Compat::Request;
using Compat::Response;
using Compat::S3Result;
using S3::S3Error;
using S3::S3Errors;

namespace {

constexpr std::uint64_t kMaxObject = std::uint64_t{5} << 40;  // bounds the table of parts
constexpr char kWriteFailed[] = "Failed to flush response stream (eof: 0, bad: 0)";

std::string Range(std::uint64_t first, std::uint64_t bytes) {
  return std::to_string(first) + "-" + std::to_string(first + bytes - 1);
}

}  // namespace

void TransferTask::Download() {
  if (!handle->sized && !ReadSize()) return;
  Report(*manager, handle, TransferStatus::IN_PROGRESS);
  if (IsCancelled()) return Fail(Compat::CancelledError());
  if (handle->IsMultipart()) {
    DownloadInParts();
  } else {
    DownloadWhole();
  }
}

bool TransferTask::ReadSize() {
  Request request = NewRequest("HEAD");
  if (handle->requestedSize > 0) {
    request.range = Range(handle->offset, handle->requestedSize);
  } else if (handle->offset > 0) {
    request.range = std::to_string(handle->offset) + "-";
  }
  const S3Result<Response> outcome = channel.Send(request);
  if (!outcome.IsSuccess()) {
    Fail(outcome.GetError());
    return false;
  }
  std::uint64_t size = outcome.GetResult().contentLength;
  if (handle->requestedSize > 0) size = std::min(size, handle->requestedSize);
  if (size > kMaxObject) {
    Fail(S3Error(S3Errors::UNKNOWN, "", "The object's size can't be true.", false));
    return false;
  }
  KeepMetadata(outcome.GetResult());
  {
    const std::lock_guard guard(handle->lock);
    handle->total = size;
    handle->multipart = size > manager->config.bufferSize;
    handle->sized = true;
  }
  if (handle->IsMultipart()) handle->partTags.assign(PartCount(), "");
  return true;
}

void TransferTask::DownloadWhole() {
  const std::uint64_t total = handle->GetBytesTotalSize();
  std::unique_ptr<IOStream> stream;
  const auto open = [&]() -> std::ostream* {
    stream.reset(handle->createStream());
    return stream.get();
  };
  Request request = NewRequest("GET");
  if (total > 0) request.range = Range(handle->offset, total);
  request.maxBody = total;
  request.openSink = open;
  const S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess()) {
    stream.reset();
    return Fail(outcome.GetError());
  }
  if (stream == nullptr) open();
  const bool written = stream != nullptr && stream->flush();
  stream.reset();
  if (!written) return Fail(S3Error(S3Errors::INTERNAL_FAILURE, "", kWriteFailed, false));
  if (handle->GetBytesTransferred() != total) {
    handle->sized = false;
    return Fail(S3Error(S3Errors::UNKNOWN, "", "The object has changed.", true));
  }
  Complete();
}

void TransferTask::DownloadInParts() {
  if (!RunParts([this](std::size_t part) { return DownloadPart(part); })) return Fail();
  Complete();
}

bool TransferTask::DownloadPart(std::size_t part) {
  const std::uint64_t bytes = PartBytes(part);
  Request request = NewRequest("GET");
  request.range = Range(handle->offset + part * manager->config.bufferSize, bytes);
  request.maxBody = bytes;
  const S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess()) {
    Tell(outcome.GetError());
    return false;
  }
  if (outcome.GetResult().body.size() != bytes) {
    Tell(S3Error(S3Errors::UNKNOWN, "", "The object has changed.", true));
    return false;
  }
  if (!WritePart(part, outcome.GetResult().body)) {
    Tell(S3Error(S3Errors::INTERNAL_FAILURE, "", kWriteFailed, false));
    return false;
  }
  handle->partTags[part] = "done";
  return true;
}

bool TransferTask::WritePart(std::size_t part, const std::string& bytes) {
  const std::lock_guard guard(streamLock);
  if (handle->stream == nullptr) {
    handle->stream.reset(handle->createStream());
    if (handle->stream == nullptr) return false;
    handle->streamBase = handle->stream->tellp();
  }
  IOStream& stream = *handle->stream;
  stream.clear();
  stream.seekp(handle->streamBase + static_cast<std::streamoff>(part * manager->config.bufferSize));
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  stream.flush();
  return stream.good();
}

}  // namespace Aws::Transfer
