#pragma once

#include <memory>

#include "aws/core/auth/AWSCredentials.h"
#include "aws/core/client/ClientConfiguration.h"
#include "aws/s3/Models.h"
#include "aws/s3/S3Errors.h"

namespace Aws::Compat {
class Channel;
}  // namespace Aws::Compat

namespace Aws::Client {

class AWSAuthV4Signer {
 public:
  // Bodies are never signed here, as the transport protects them.
  enum class PayloadSigningPolicy { RequestDependent, Always, Never };
};

}  // namespace Aws::Client

namespace Aws::S3 {

namespace Model {
using CopyObjectOutcome = S3Outcome<CopyObjectResult>;
using CreateBucketOutcome = S3Outcome<CreateBucketResult>;
using DeleteObjectsOutcome = S3Outcome<DeleteObjectsResult>;
using GetObjectOutcome = S3Outcome<GetObjectResult>;
using ListBucketsOutcome = S3Outcome<ListBucketsResult>;
using ListObjectsOutcome = S3Outcome<ListObjectsResult>;
}  // namespace Model

// Requests to an S3 service, on the caller's thread. Network failures and 5xx answers are repeated
// as AWS_RETRY_MODE and AWS_MAX_ATTEMPTS say. Any thread.
class S3Client {
 public:
  S3Client(const Auth::AWSCredentials& credentials,
           const Client::ClientConfiguration& configuration,
           Client::AWSAuthV4Signer::PayloadSigningPolicy signPayloads, bool useVirtualAddressing);
  virtual ~S3Client();

  [[nodiscard]] Model::ListObjectsOutcome ListObjects(
      const Model::ListObjectsRequest& request) const;
  [[nodiscard]] Model::ListBucketsOutcome ListBuckets() const;
  [[nodiscard]] Model::GetObjectOutcome GetObject(const Model::GetObjectRequest& request) const;
  [[nodiscard]] Model::CopyObjectOutcome CopyObject(const Model::CopyObjectRequest& request) const;
  [[nodiscard]] Model::DeleteObjectsOutcome DeleteObjects(
      const Model::DeleteObjectsRequest& request) const;
  [[nodiscard]] Model::CreateBucketOutcome CreateBucket(
      const Model::CreateBucketRequest& request) const;

  // From now on requests fail at once, those under way within a second.
  void DisableRequestProcessing();

  // The stand-in's own: what transfers send their requests through.
  [[nodiscard]] const std::shared_ptr<Compat::Channel>& StandInChannel() const { return channel; }

 private:
  std::shared_ptr<Compat::Channel> channel;
};

}  // namespace Aws::S3
