#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

class CopyObjectRequest {
 public:
  [[nodiscard]] const String& GetBucket() const { return bucket; }
  void SetBucket(String value) { bucket = std::move(value); }
  [[nodiscard]] const String& GetKey() const { return key; }
  void SetKey(String value) { key = std::move(value); }
  // bucket/key, not encoded.
  [[nodiscard]] const String& GetCopySource() const { return copySource; }
  void SetCopySource(String value) { copySource = std::move(value); }

 private:
  String bucket;
  String key;
  String copySource;
};

}  // namespace Aws::S3::Model
