#pragma once

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Client {

struct ClientConfiguration {
  // Takes the region from AWS_DEFAULT_REGION or AWS_REGION.
  ClientConfiguration();

  String region;
  bool verifySSL = true;
  long connectTimeoutMs = 1000;
  long requestTimeoutMs = 3000;  // without a byte
  unsigned maxConnections = 25;
};

}  // namespace Aws::Client
