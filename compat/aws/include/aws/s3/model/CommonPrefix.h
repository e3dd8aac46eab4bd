#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

class CommonPrefix {
 public:
  [[nodiscard]] const String& GetPrefix() const { return prefix; }
  void SetPrefix(String value) { prefix = std::move(value); }

 private:
  String prefix;
};

}  // namespace Aws::S3::Model
