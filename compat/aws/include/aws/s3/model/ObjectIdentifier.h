#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

class ObjectIdentifier {
 public:
  [[nodiscard]] const String& GetKey() const { return key; }
  void SetKey(String value) { key = std::move(value); }

 private:
  String key;
};

}  // namespace Aws::S3::Model
