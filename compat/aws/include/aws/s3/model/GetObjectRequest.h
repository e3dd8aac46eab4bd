#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

class GetObjectRequest {
 public:
  [[nodiscard]] const String& GetBucket() const { return bucket; }
  void SetBucket(String value) { bucket = std::move(value); }
  [[nodiscard]] const String& GetKey() const { return key; }
  void SetKey(String value) { key = std::move(value); }

 private:
  String bucket;
  String key;
};

}  // namespace Aws::S3::Model
