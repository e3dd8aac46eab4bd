#pragma once

#include <utility>

#include "aws/s3/model/Delete.h"

namespace Aws::S3::Model {

class DeleteObjectsRequest {
 public:
  [[nodiscard]] const String& GetBucket() const { return bucket; }
  void SetBucket(String value) { bucket = std::move(value); }
  [[nodiscard]] const Delete& GetDelete() const { return list; }
  void SetDelete(Delete value) { list = std::move(value); }

 private:
  String bucket;
  Delete list;
};

}  // namespace Aws::S3::Model
