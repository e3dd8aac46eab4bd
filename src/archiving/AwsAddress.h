#pragma once

#include <aws/s3/model/BucketLocationConstraint.h>

#include <string>

namespace qvArchiving {

// What a bucket's address says: bucket.s3.region.domain, with or without "https://" or two leading
// backslashes.
struct AwsAddress {
  std::string region;  // "": none that is known
  Aws::S3::Model::BucketLocationConstraint constraint{};
  std::string bucket;  // "": none
};

[[nodiscard]] AwsAddress ParseAddress(const std::string& fullName);

}  // namespace qvArchiving
