#pragma once

#include <string>

#include "aws/core/client/ClientConfiguration.h"

namespace Aws::Compat {

// Where requests of one client go.
class Endpoint {
 public:
  // What AWS_ENDPOINT_URL_S3 or AWS_ENDPOINT_URL say (unless
  // AWS_IGNORE_CONFIGURED_ENDPOINT_URLS is "true"), else the region's.
  Endpoint(const Client::ClientConfiguration& configuration, bool useVirtualAddressing);

  // The address of a bucket, as part of the host's name where both allow it, and of a key in it.
  // Both may be empty.
  [[nodiscard]] std::string Url(const std::string& bucket, const std::string& key) const;

 private:
  [[nodiscard]] bool IsHostName(const std::string& bucket) const;

  std::string scheme;  // with "://"
  std::string host;    // with a port, if one is given
  std::string base;    // path, without a slash at the end
  bool virtualHosts;
};

}  // namespace Aws::Compat
