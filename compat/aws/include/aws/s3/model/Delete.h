#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSVector.h"
#include "aws/s3/model/ObjectIdentifier.h"

namespace Aws::S3::Model {

class Delete {
 public:
  [[nodiscard]] const Vector<ObjectIdentifier>& GetObjects() const { return objects; }
  void AddObjects(ObjectIdentifier value) { objects.push_back(std::move(value)); }

 private:
  Vector<ObjectIdentifier> objects;
};

}  // namespace Aws::S3::Model
