#pragma once

#include "aws/core/client/AWSError.h"

namespace Aws::S3 {

enum class S3Errors {
  INTERNAL_FAILURE = 1,
  NETWORK_CONNECTION = 99,
  UNKNOWN = 100,
  USER_CANCELLED = 102,
  INVALID_RANGE = 103  // the stand-in's own number
};

using S3Error = Client::AWSError<S3Errors>;

}  // namespace Aws::S3
