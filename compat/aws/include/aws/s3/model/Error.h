#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

// Why one object of a request for many failed.
class Error {
 public:
  [[nodiscard]] const String& GetKey() const { return key; }
  void SetKey(String value) { key = std::move(value); }
  [[nodiscard]] const String& GetCode() const { return code; }
  void SetCode(String value) { code = std::move(value); }
  [[nodiscard]] const String& GetMessage() const { return message; }
  void SetMessage(String value) { message = std::move(value); }

 private:
  String key;
  String code;
  String message;
};

}  // namespace Aws::S3::Model
