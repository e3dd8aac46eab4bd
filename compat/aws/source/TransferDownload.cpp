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

std::string Range(std::uint64_t first, std::uint64_t bytes) {
  return std::to_string(first) + "-" + std::to_string(first + bytes - 1);
}

// From "bytes first-last/size"; without it the body is all there is.
std::uint64_t ObjectSize(const Response& response) {
  const auto range = response.headers.find("content-range");
  if (range == response.headers.end()) return response.received;
  const std::size_t slash = range->second.find('/');
  return slash == std::string::npos ? 0
                                    : std::strtoull(range->second.c_str() + slash + 1, nullptr, 10);
}

}  // namespace

bool TransferTask::Download() {
  if (!handle->sized && !DownloadFirstPart()) return false;
  Report(TransferStatus::IN_PROGRESS);
  return RunParts([this](std::size_t part) { return DownloadPart(part); });
}

S3Result<Response> TransferTask::Fetch(std::size_t part, std::uint64_t bytes) {
  const std::uint64_t at = part * manager->config.bufferSize;
  Request request = NewRequest("GET");
  request.range = Range(handle->offset + at, bytes);
  request.maxBody = bytes;
  request.openSink = [this, at] { return OpenStream(at); };
  S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess() && outcome.GetError().GetErrorType() == S3Errors::INTERNAL_FAILURE) {
    handle->sized = false;  // a repetition begins anew
  }
  return outcome;
}

IOStream* TransferTask::OpenStream(std::uint64_t at) {
  if (!handle->sized) {
    handle->stream.reset(handle->createStream());
    if (handle->stream != nullptr) handle->streamBase = handle->stream->tellp();
  }
  if (at != 0) handle->stream->seekp(handle->streamBase + static_cast<std::streamoff>(at));
  return handle->stream.get();
}

// Its answer tells how large the object is.
bool TransferTask::DownloadFirstPart() {
  const std::uint64_t size = manager->config.bufferSize;
  const std::uint64_t asked =
      handle->requestedSize == 0 ? size : std::min(size, handle->requestedSize);
  const S3Result<Response> outcome = Fetch(0, asked);
  const bool isEmpty = !outcome.IsSuccess() && handle->offset == 0 && handle->requestedSize == 0 &&
                       outcome.GetError().GetErrorType() == S3Errors::INVALID_RANGE;
  if (!outcome.IsSuccess() && !isEmpty) return Refuse(outcome.GetError());
  const Response& response = outcome.GetResult();
  std::uint64_t total = isEmpty ? 0 : ObjectSize(response);
  total = total < handle->offset ? 0 : total - handle->offset;
  if (handle->requestedSize > 0) total = std::min(total, handle->requestedSize);
  if (total > kMaxObject || response.received != std::min(asked, total)) {
    return Refuse(S3Error(S3Errors::UNKNOWN, "", "The object's size can't be true.", false));
  }
  if (total == 0) (void)OpenStream(0);
  KeepMetadata(response);
  handle->total = total;
  handle->sized = true;
  handle->partTags.assign(std::max<std::size_t>(1, PartCount()), "");
  handle->partTags[0] = "done";
  return true;
}

bool TransferTask::DownloadPart(std::size_t part) {
  const std::uint64_t bytes = PartBytes(part);
  const S3Result<Response> outcome = Fetch(part, bytes);
  if (!outcome.IsSuccess()) return Refuse(outcome.GetError());
  if (outcome.GetResult().received != bytes) {
    return Refuse(S3Error(S3Errors::UNKNOWN, "", "The object has changed.", true));
  }
  handle->partTags[part] = "done";
  return true;
}

}  // namespace Aws::Transfer
