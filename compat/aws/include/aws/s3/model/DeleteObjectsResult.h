#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSVector.h"
#include "aws/s3/model/Error.h"

namespace Aws::S3::Model {

class DeleteObjectsResult {
 public:
  [[nodiscard]] const Vector<Error>& GetErrors() const { return errors; }
  void AddErrors(Error value) { errors.push_back(std::move(value)); }

 private:
  Vector<Error> errors;
};

}  // namespace Aws::S3::Model
