#include <algorithm>
#include <cstdlib>
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

// From "bytes first-last/size"; without it the body is all there is.
std::uint64_t ObjectSize(const Response& response) {
  const auto range = response.headers.find("content-range");
  if (range == response.headers.end()) return response.body.size();
  const std::size_t slash = range->second.find('/');
  return slash == std::string::npos ? 0
                                    : std::strtoull(range->second.c_str() + slash + 1, nullptr, 10);
}

}  // namespace

void TransferTask::Download() {
  if (IsCancelled()) return Fail(Compat::CancelledError());
  if (handle->sized) {
    Report(*manager, handle, TransferStatus::IN_PROGRESS);
  } else if (!DownloadFirstPart()) {
    return Fail();
  }
  if (!RunParts([this](std::size_t part) { return DownloadPart(part); })) return Fail();
  Complete();
}

// Its answer tells how large the object is.
bool TransferTask::DownloadFirstPart() {
  const std::uint64_t size = manager->config.bufferSize;
  const std::uint64_t asked =
      handle->requestedSize == 0 ? size : std::min(size, handle->requestedSize);
  Request request = NewRequest("GET");
  request.range = Range(handle->offset, asked);
  request.maxBody = asked;
  const S3Result<Response> outcome = SendCounted(request);
  const bool isEmpty = !outcome.IsSuccess() && handle->offset == 0 && handle->requestedSize == 0 &&
                       outcome.GetError().GetErrorType() == S3Errors::INVALID_RANGE;
  if (!outcome.IsSuccess() && !isEmpty) {
    Tell(outcome.GetError());
    return false;
  }
  const Response& response = outcome.GetResult();
  std::uint64_t total = isEmpty ? 0 : ObjectSize(response);
  total = total < handle->offset ? 0 : total - handle->offset;
  if (handle->requestedSize > 0) total = std::min(total, handle->requestedSize);
  if (total > kMaxObject || response.body.size() != std::min(asked, total)) {
    Tell(S3Error(S3Errors::UNKNOWN, "", "The object's size can't be true.", false));
    return false;
  }
  KeepMetadata(response);
  {
    const std::lock_guard guard(handle->lock);
    handle->total = total;
    handle->multipart = total > size;
    handle->sized = true;
  }
  handle->partTags.assign(std::max<std::size_t>(1, PartCount()), "");
  Report(*manager, handle, TransferStatus::IN_PROGRESS);
  return KeepPart(0, response.body);
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
  return KeepPart(part, outcome.GetResult().body);
}

bool TransferTask::KeepPart(std::size_t part, const std::string& bytes) {
  if (handle->stream == nullptr) {
    handle->stream.reset(handle->createStream());
    if (handle->stream != nullptr) handle->streamBase = handle->stream->tellp();
  }
  const bool open = handle->stream != nullptr;
  if (open) {
    IOStream& stream = *handle->stream;
    stream.seekp(handle->streamBase +
                 static_cast<std::streamoff>(part * manager->config.bufferSize));
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.flush();
  }
  if (!open || !handle->stream->good()) {
    handle->stream.reset();
    handle->sized = false;  // a repetition begins anew
    Tell(S3Error(S3Errors::INTERNAL_FAILURE, "", kWriteFailed, false));
    return false;
  }
  handle->partTags[part] = "done";
  return true;
}

}  // namespace Aws::Transfer
