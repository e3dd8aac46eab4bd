#pragma once

#include <utility>

#include "aws/core/utils/DateTime.h"

namespace Aws::S3::Model {

class Object {
 public:
  [[nodiscard]] const String& GetKey() const { return key; }
  void SetKey(String value) { key = std::move(value); }
  [[nodiscard]] long long GetSize() const { return size; }
  void SetSize(long long value) { size = value; }
  [[nodiscard]] const Utils::DateTime& GetLastModified() const { return lastModified; }
  void SetLastModified(const Utils::DateTime& value) { lastModified = value; }

 private:
  String key;
  long long size = 0;
  Utils::DateTime lastModified;
};

}  // namespace Aws::S3::Model
