#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Client {

// Why a request failed: the service's own name and message, or empty and the transport's message.
template <typename T>
class AWSError {
 public:
  AWSError() = default;
  AWSError(T errorType, String exceptionName, String text, bool retryable)
      : type(errorType),
        name(std::move(exceptionName)),
        message(std::move(text)),
        shouldRetry(retryable) {}

  [[nodiscard]] T GetErrorType() const { return type; }
  [[nodiscard]] const String& GetExceptionName() const { return name; }
  [[nodiscard]] const String& GetMessage() const { return message; }
  [[nodiscard]] bool ShouldRetry() const { return shouldRetry; }

 private:
  T type{};
  String name;
  String message;
  bool shouldRetry = false;
};

}  // namespace Aws::Client
