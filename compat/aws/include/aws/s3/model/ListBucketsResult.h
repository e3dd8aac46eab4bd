#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSVector.h"
#include "aws/s3/model/Bucket.h"

namespace Aws::S3::Model {

class ListBucketsResult {
 public:
  [[nodiscard]] const Vector<Bucket>& GetBuckets() const { return buckets; }
  void AddBuckets(Bucket value) { buckets.push_back(std::move(value)); }

 private:
  Vector<Bucket> buckets;
};

}  // namespace Aws::S3::Model
