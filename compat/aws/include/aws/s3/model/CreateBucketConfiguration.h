#pragma once

#include "aws/s3/model/BucketLocationConstraint.h"

namespace Aws::S3::Model {

class CreateBucketConfiguration {
 public:
  [[nodiscard]] BucketLocationConstraint GetLocationConstraint() const { return constraint; }
  void SetLocationConstraint(BucketLocationConstraint value) { constraint = value; }

 private:
  BucketLocationConstraint constraint = BucketLocationConstraint::NOT_SET;
};

}  // namespace Aws::S3::Model
