#pragma once

#include "aws/core/http/HttpTypes.h"
#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Client {

struct ClientConfiguration {
  // Takes the region from AWS_DEFAULT_REGION or AWS_REGION.
  ClientConfiguration();

  String region;
  Http::Scheme scheme = Http::Scheme::HTTPS;
  String endpointOverride;  // URL or host; empty: the region's own endpoint
  bool verifySSL = true;
  long connectTimeoutMs = 1000;
  long requestTimeoutMs = 3000;  // without a byte
  unsigned maxConnections = 25;
};

}  // namespace Aws::Client
