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

namespace Aws::S3 {

enum class S3Errors {
  INTERNAL_FAILURE = 1,
  NETWORK_CONNECTION = 99,
  UNKNOWN = 100,
  USER_CANCELLED = 102,
  INVALID_RANGE = 103  // the stand-in's own number
};

using S3Error = Client::AWSError<S3Errors>;

// The result of a request, or why there is none.
template <typename R>
class S3Outcome {
 public:
  S3Outcome(R value) : result(std::move(value)), success(true) {}
  S3Outcome(S3Error value) : error(std::move(value)) {}

  [[nodiscard]] bool IsSuccess() const { return success; }
  [[nodiscard]] const R& GetResult() const { return result; }
  R&& GetResultWithOwnership() { return std::move(result); }
  [[nodiscard]] const S3Error& GetError() const { return error; }

 private:
  R result{};
  S3Error error;
  bool success = false;
};

}  // namespace Aws::S3
