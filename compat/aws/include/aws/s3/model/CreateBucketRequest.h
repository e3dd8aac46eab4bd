#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"
#include "aws/s3/model/CreateBucketConfiguration.h"

namespace Aws::S3::Model {

class CreateBucketRequest {
 public:
  [[nodiscard]] const String& GetBucket() const { return bucket; }
  void SetBucket(String value) { bucket = std::move(value); }
  [[nodiscard]] const CreateBucketConfiguration& GetCreateBucketConfiguration() const {
    return configuration;
  }
  void SetCreateBucketConfiguration(const CreateBucketConfiguration& value) {
    configuration = value;
  }

 private:
  String bucket;
  CreateBucketConfiguration configuration;
};

}  // namespace Aws::S3::Model
