#include "Endpoint.h"

#include "Text.h"

namespace Aws::Compat {

namespace {

std::string ConfiguredAddress() {
  if (Environment("AWS_IGNORE_CONFIGURED_ENDPOINT_URLS") == "true") return {};
  const std::string forS3 = Environment("AWS_ENDPOINT_URL_S3");
  return forS3.empty() ? Environment("AWS_ENDPOINT_URL") : forS3;
}

bool IsAddress(const std::string& host) {
  return host.starts_with('[') ||
         host.substr(0, host.find(':')).find_first_not_of("0123456789.") == std::string::npos;
}

}  // namespace

Endpoint::Endpoint(const Client::ClientConfiguration& configuration, bool useVirtualAddressing)
    : scheme("https://"), virtualHosts(useVirtualAddressing) {
  host = ConfiguredAddress();
  if (host.empty()) {
    host = "s3." + configuration.region + ".amazonaws.com";
    if (configuration.region.starts_with("cn-")) host += ".cn";
  }
  if (const std::size_t end = host.find("://"); end != std::string::npos) {
    scheme = host.substr(0, end + 3);
    host.erase(0, end + 3);
  }
  if (const std::size_t slash = host.find('/'); slash != std::string::npos) {
    base = host.substr(slash);
    host.erase(slash);
    while (base.ends_with('/')) base.pop_back();
  }
  if (IsAddress(host)) virtualHosts = false;
}

bool Endpoint::IsHostName(const std::string& bucket) const {
  constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789-.";
  if (bucket.size() < 3 || bucket.size() > 63) return false;
  if (bucket.find_first_not_of(kLetters) != std::string::npos) return false;
  if (bucket.find("..") != std::string::npos || bucket.front() == '-' || bucket.back() == '-' ||
      bucket.front() == '.' || bucket.back() == '.') {
    return false;
  }
  // A certificate for *.host doesn't hold for a name with more dots.
  return scheme == "http://" || bucket.find('.') == std::string::npos;
}

std::string Endpoint::Url(const std::string& bucket, const std::string& key) const {
  std::string url = scheme;
  const bool inHost = !bucket.empty() && virtualHosts && IsHostName(bucket);
  if (inHost) url += bucket + ".";
  url += host + base;
  if (!bucket.empty() && !inHost) url.append("/").append(PercentEncode(bucket, false));
  return url.append("/").append(PercentEncode(key, true));
}

}  // namespace Aws::Compat
