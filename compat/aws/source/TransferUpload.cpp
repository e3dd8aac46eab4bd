#include "TransferTask.h"

namespace Aws::Transfer {

using Compat::Request;
using Compat::Response;
using Compat::S3Result;
using Compat::XmlElement;

namespace {

constexpr char kFileChanged[] = "The file has changed.";

bool ReadAt(std::ifstream& file, std::uint64_t at, std::string& bytes) {
  file.clear();
  file.seekg(static_cast<std::streamoff>(at));
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file.good();
}

}  // namespace

bool TransferTask::Upload() {
  std::ifstream file = OpenFile(handle->targetFile);
  if (!file) return Refuse("The requested file could not be opened.");
  Report(TransferStatus::IN_PROGRESS);
  if (handle->total <= manager->config.bufferSize) return UploadWhole(file);
  if (handle->uploadId.empty() && !BeginParts()) return false;
  return RunParts([&](std::size_t part) { return UploadPart(file, part); }) && CompleteParts();
}

bool TransferTask::UploadWhole(std::ifstream& file) {
  std::string bytes(handle->total, '\0');
  if (!ReadAt(file, 0, bytes)) return Refuse(kFileChanged);
  Request request = NewRequest("PUT");
  request.body = bytes;
  if (!AddMetadata(request)) return false;
  const S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess()) return Refuse(outcome.GetError());
  KeepMetadata(outcome.GetResult());
  return true;
}

bool TransferTask::BeginParts() {
  Request request = NewRequest("POST");
  request.query = {{"uploads", ""}};
  if (!AddMetadata(request)) return false;
  const S3Result<XmlElement> reply = channel.SendForXml(request, "InitiateMultipartUploadResult");
  if (!reply.IsSuccess()) return Refuse(reply.GetError());
  handle->uploadId = reply.GetResult().ChildText("UploadId");
  handle->partTags.assign(PartCount(), "");
  return true;
}

bool TransferTask::UploadPart(std::ifstream& file, std::size_t part) {
  std::string bytes(PartBytes(part), '\0');
  if (!ReadAt(file, part * manager->config.bufferSize, bytes)) return Refuse(kFileChanged);
  Request request = NewRequest("PUT");
  request.query = {{"partNumber", std::to_string(part + 1)}, {"uploadId", handle->uploadId}};
  request.headers = {"Content-Type: application/octet-stream"};
  request.body = bytes;
  const S3Result<Response> outcome = SendCounted(request);
  if (!outcome.IsSuccess()) return Refuse(outcome.GetError());
  const auto tag = outcome.GetResult().headers.find("etag");
  handle->partTags[part] = tag == outcome.GetResult().headers.end() ? "-" : tag->second;
  return true;
}

bool TransferTask::CompleteParts() {
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
    return Refuse(reply.GetError());
  }
  const std::lock_guard guard(handle->lock);
  handle->metadata["ETag"] = reply.GetResult().ChildText("ETag");
  return true;
}

}  // namespace Aws::Transfer
