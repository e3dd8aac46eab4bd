#pragma once

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Client {

struct ClientConfiguration {
  String region = "us-east-1";
  bool verifySSL = true;
  long connectTimeoutMs = 1000;
  long requestTimeoutMs = 3000;  // without a byte
  unsigned maxConnections = 25;
};

}  // namespace Aws::Client
