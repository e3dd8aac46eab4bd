#include "TransferTask.h"

namespace Aws::Transfer {

using Compat::Request;
using Compat::Response;
using Compat::S3Result;
using Compat::XmlElement;
using S3::S3Error;
using S3::S3Errors;

namespace {

S3Error LocalError(const char* message) {
  return {S3Errors::INTERNAL_FAILURE, "", message, false};
}

constexpr char kCannotOpen[] = "The requested file could not be opened.";
constexpr char kFileChanged[] = "The file has changed.";
constexpr char kBadMetadata[] = "The metadata can't be sent.";

bool ReadAt(std::ifstream& file, std::uint64_t at, std::string& bytes) {
  file.clear();
  file.seekg(static_cast<std::streamoff>(at));
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file.good();
}

std::string HeaderOf(const Response& response, const char* name) {
  const auto header = response.headers.find(name);
  return header == response.headers.end() ? std::string() : header->second;
}

}  // namespace

void TransferTask::Upload() {
  std::ifstream file = OpenFile(handle->targetFile);
  if (!file) return Fail(LocalError(kCannotOpen));
  Report(*manager, handle, TransferStatus::IN_PROGRESS);
  if (IsCancelled()) return Fail(Compat::CancelledError());
  if (handle->IsMultipart()) {
    UploadInParts(file);
  } else {
    UploadWhole(file);
  }
}

void TransferTask::UploadWhole(std::ifstream& file) {
  std::string bytes(handle->GetBytesTotalSize(), '\0');
  if (!ReadAt(file, 0, bytes)) return Fail(LocalError(kFileChanged));
  Request request = NewRequest("PUT");
  request.body = bytes;
  if (!AddMetadata(request)) return Fail(LocalError(kBadMetadata));
  const S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess()) return Fail(outcome.GetError());
  KeepMetadata(outcome.GetResult());
  Complete();
}

void TransferTask::UploadInParts(std::ifstream& file) {
  if (handle->uploadId.empty() && !BeginParts()) return;
  if (!RunParts([&](std::size_t part) { return UploadPart(file, part); })) return Fail();
  CompleteParts();
}

bool TransferTask::BeginParts() {
  Request request = NewRequest("POST");
  request.query = {{"uploads", ""}};
  if (!AddMetadata(request)) {
    Fail(LocalError(kBadMetadata));
    return false;
  }
  const S3Result<XmlElement> reply = channel.SendForXml(request, "InitiateMultipartUploadResult");
  if (!reply.IsSuccess()) {
    Fail(reply.GetError());
    return false;
  }
  handle->uploadId = reply.GetResult().ChildText("UploadId");
  handle->partTags.assign(PartCount(), "");
  return true;
}

bool TransferTask::UploadPart(std::ifstream& file, std::size_t part) {
  std::string bytes(PartBytes(part), '\0');
  if (!ReadAt(file, part * manager->config.bufferSize, bytes)) {
    Tell(LocalError(kFileChanged));
    return false;
  }
  Request request = NewRequest("PUT");
  request.query = {{"partNumber", std::to_string(part + 1)}, {"uploadId", handle->uploadId}};
  request.headers = {"Content-Type: application/octet-stream"};
  request.body = bytes;
  const S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess()) {
    Tell(outcome.GetError());
    return false;
  }
  const std::string tag = HeaderOf(outcome.GetResult(), "etag");
  handle->partTags[part] = tag.empty() ? "-" : tag;
  return true;
}

void TransferTask::CompleteParts() {
  std::string document = "<CompleteMultipartUpload>";
  for (std::size_t part = 0; part < handle->partTags.size(); ++part) {
    document += "<Part><PartNumber>" + std::to_string(part + 1) + "</PartNumber><ETag>" +
                Compat::EscapeXml(handle->partTags[part]) + "</ETag></Part>";
  }
  document += "</CompleteMultipartUpload>";
  Request request = NewRequest("POST");
  request.query = {{"uploadId", handle->uploadId}};
  request.headers = {"Content-Type: application/xml"};
  request.body = document;
  const S3Result<XmlElement> reply = channel.SendForXml(request, "CompleteMultipartUploadResult");
  if (!reply.IsSuccess()) {
    if (reply.GetError().GetExceptionName() == "NoSuchUpload") handle->uploadId.clear();
    return Fail(reply.GetError());
  }
  {
    const std::lock_guard guard(handle->lock);
    handle->metadata["ETag"] = reply.GetResult().ChildText("ETag");
  }
  Complete();
}

}  // namespace Aws::Transfer
