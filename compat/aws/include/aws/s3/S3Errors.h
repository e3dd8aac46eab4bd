#pragma once

#include "aws/core/client/AWSError.h"

namespace Aws::S3 {

enum class S3Errors {
  INTERNAL_FAILURE = 1,
  SERVICE_UNAVAILABLE = 12,
  ACCESS_DENIED = 15,
  RESOURCE_NOT_FOUND = 16,
  SLOW_DOWN = 19,
  REQUEST_TIME_TOO_SKEWED = 20,
  SIGNATURE_DOES_NOT_MATCH = 22,
  INVALID_ACCESS_KEY_ID = 23,
  NETWORK_CONNECTION = 99,
  UNKNOWN = 100,
  USER_CANCELLED = 102,
  INVALID_RANGE = 103,  // the stand-in's own number
  NO_SUCH_BUCKET = 133,
  NO_SUCH_KEY = 134
};

using S3Error = Client::AWSError<S3Errors>;

}  // namespace Aws::S3
