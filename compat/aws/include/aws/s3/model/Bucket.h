#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

class Bucket {
 public:
  [[nodiscard]] const String& GetName() const { return name; }
  void SetName(String value) { name = std::move(value); }

 private:
  String name;
};

}  // namespace Aws::S3::Model
