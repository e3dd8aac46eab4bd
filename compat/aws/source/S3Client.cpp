#include "aws/s3/S3Client.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "Channel.h"

namespace Aws::S3 {

using Compat::EscapeXml;
using Compat::PercentEncode;
using Compat::Request;
using Compat::Response;
using Compat::S3Result;
using Compat::XmlElement;

namespace {

// Seconds since 1970 of a moment in ISO 8601; 0 if it is none.
std::int64_t SecondsOf(const std::string& iso) {
  namespace chrono = std::chrono;
  int year = 0;
  unsigned month = 0, day = 0;
  int hour = 0, minute = 0, second = 0;
  if (std::sscanf(iso.c_str(), "%4d-%2u-%2uT%2d:%2d:%2d", &year, &month, &day, &hour, &minute,
                  &second) != 6) {
    return 0;
  }
  const chrono::year_month_day date{chrono::year(year), chrono::month(month), chrono::day(day)};
  if (!date.ok()) return 0;
  const auto days = chrono::sys_days(date).time_since_epoch().count();
  return ((days * std::int64_t{24} + hour) * 60 + minute) * 60 + second;
}

Model::Object ObjectOf(const XmlElement& element) {
  return {element.ChildText("Key"), std::strtoll(element.ChildText("Size").c_str(), nullptr, 10),
          Utils::DateTime(SecondsOf(element.ChildText("LastModified")))};
}

// In the order of the enumeration.
constexpr const char* kRegions[] = {
    "ap-northeast-1", "ap-northeast-2", "ap-south-1",     "ap-southeast-1", "ap-southeast-2",
    "ca-central-1",   "cn-north-1",     "cn-northwest-1", "eu-central-1",   "eu-west-1",
    "eu-west-2",      "eu-west-3",      "sa-east-1",      "us-east-1",      "us-east-2",
    "us-gov-west-1",  "us-west-1",      "us-west-2"};

std::string DeleteDocument(const Model::Delete& list) {
  std::string text = "<Delete xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">";
  for (const Model::ObjectIdentifier& object : list.GetObjects()) {
    text += "<Object><Key>" + EscapeXml(object.GetKey()) + "</Key></Object>";
  }
  return text + "</Delete>";
}

}  // namespace

S3Client::S3Client(const Auth::AWSCredentials& credentials,
                   const Client::ClientConfiguration& configuration,
                   Client::AWSAuthV4Signer::PayloadSigningPolicy, bool useVirtualAddressing)
    : channel(std::make_shared<Compat::Channel>(credentials, configuration, useVirtualAddressing)) {
}

S3Client::~S3Client() = default;

void S3Client::DisableRequestProcessing() {
  channel->Disable();
}

Model::ListObjectsOutcome S3Client::ListObjects(const Model::ListObjectsRequest& request) const {
  Request send;
  send.bucket = request.GetBucket();
  if (request.GetDelimiter()) send.query.emplace_back("delimiter", *request.GetDelimiter());
  if (request.GetPrefix()) send.query.emplace_back("prefix", *request.GetPrefix());
  const S3Result<XmlElement> reply = channel->SendForXml(send, "ListBucketResult");
  if (!reply.IsSuccess()) return reply.GetError();
  Model::ListObjectsResult result;
  for (const XmlElement& child : reply.GetResult().children) {
    if (child.name == "Contents") {
      result.AddContents(ObjectOf(child));
    } else if (child.name == "CommonPrefixes") {
      result.AddCommonPrefixes(Model::CommonPrefix(child.ChildText("Prefix")));
    }
  }
  return result;
}

Model::ListBucketsOutcome S3Client::ListBuckets() const {
  const S3Result<XmlElement> reply = channel->SendForXml({}, "ListAllMyBucketsResult");
  if (!reply.IsSuccess()) return reply.GetError();
  Model::ListBucketsResult result;
  for (const XmlElement& list : reply.GetResult().children) {
    if (list.name != "Buckets") continue;
    for (const XmlElement& child : list.children) {
      result.AddBuckets(Model::Bucket(child.ChildText("Name")));
    }
  }
  return result;
}

Model::GetObjectOutcome S3Client::GetObject(const Model::GetObjectRequest& request) const {
  std::shared_ptr<std::stringstream> body;
  Request send;
  send.bucket = request.GetBucket();
  send.key = request.GetKey();
  send.onAttempt = [&body] { body = std::make_shared<std::stringstream>(); };
  send.openSink = [&body] { return body.get(); };
  send.maxBody = UINT64_MAX;
  const S3Result<Response> outcome = channel->Send(send);
  if (!outcome.IsSuccess()) return outcome.GetError();
  Model::GetObjectResult result;
  result.ReplaceBody(body);
  return result;
}

Model::CopyObjectOutcome S3Client::CopyObject(const Model::CopyObjectRequest& request) const {
  Request send;
  send.method = "PUT";
  send.bucket = request.GetBucket();
  send.key = request.GetKey();
  send.headers = {"x-amz-copy-source: " + PercentEncode(request.GetCopySource(), true)};
  const S3Result<XmlElement> reply = channel->SendForXml(send, "CopyObjectResult");
  if (!reply.IsSuccess()) return reply.GetError();
  return Model::CopyObjectResult();
}

Model::DeleteObjectsOutcome S3Client::DeleteObjects(
    const Model::DeleteObjectsRequest& request) const {
  const std::string document = DeleteDocument(request.GetDelete());
  Request send;
  send.method = "POST";
  send.bucket = request.GetBucket();
  send.query = {{"delete", ""}};
  send.headers = {"Content-Type: application/xml", "Content-MD5: " + Compat::Md5Base64(document)};
  send.body = document;
  const S3Result<XmlElement> reply = channel->SendForXml(send, "DeleteResult");
  if (!reply.IsSuccess()) return reply.GetError();
  Model::DeleteObjectsResult result;
  for (const XmlElement& child : reply.GetResult().children) {
    if (child.name != "Error") continue;
    result.AddErrors({child.ChildText("Code"), child.ChildText("Message")});
  }
  return result;
}

Model::CreateBucketOutcome S3Client::CreateBucket(const Model::CreateBucketRequest& request) const {
  using Constraint = Model::BucketLocationConstraint;
  const Constraint region = request.GetCreateBucketConfiguration().GetLocationConstraint();
  std::string document;
  if (region != Constraint::NOT_SET) {
    document = std::string(
                   "<CreateBucketConfiguration "
                   "xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><LocationConstraint>") +
               kRegions[static_cast<int>(region) - 1] +
               "</LocationConstraint></CreateBucketConfiguration>";
  }
  Request send;
  send.method = "PUT";
  send.bucket = request.GetBucket();
  send.headers = {"Content-Type: application/xml"};
  send.body = document;
  const S3Result<Response> outcome = channel->Send(send);
  if (!outcome.IsSuccess()) return outcome.GetError();
  return Model::CreateBucketResult();
}

}  // namespace Aws::S3
