#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Endpoint.h"
#include "Text.h"
#include "aws/core/auth/AWSCredentials.h"
#include "aws/core/client/ClientConfiguration.h"
#include "aws/s3/S3Errors.h"

namespace Aws::Compat {

constexpr std::uint64_t kMaxReply = 16u << 20;

struct Request {
  const char* method = "GET";
  std::string bucket;
  std::string key;
  std::vector<std::pair<std::string, std::string>> query;  // ascending by name
  std::vector<std::string> headers;                        // "name: value"
  std::string_view body;
  std::string range;  // "first-last"

  // Gives the stream for the body of a good answer, at its first byte, anew for each attempt.
  // Without it the body goes into the response.
  std::function<std::ostream*()> openSink;
  std::uint64_t maxBody = kMaxReply;         // of a good answer; one that is longer fails
  std::function<void()> onAttempt;           // an attempt begins
  std::function<void(std::size_t)> onBytes;  // so many bytes of the body came or went
  std::function<bool()> isCancelled;         // ends the request when it says so
};

struct Response {
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
  std::uint64_t received = 0;  // bytes of the body, wherever it went
};

template <typename R>
using S3Result = S3::S3Outcome<R>;

// Sends signed requests to a service, over connections that are kept. Any thread.
class Channel {
 public:
  Channel(Auth::AWSCredentials keys, const Client::ClientConfiguration& configuration,
          bool useVirtualAddressing);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // Repeats what may succeed later.
  [[nodiscard]] S3Result<Response> Send(const Request& request);
  // Likewise; the answer must be a document whose root has this name.
  [[nodiscard]] S3Result<XmlElement> SendForXml(const Request& request, std::string_view rootName);

  // From now on requests are cancelled.
  void Disable() { disabled = true; }
  [[nodiscard]] bool IsCancelled(const Request& request) const {
    return disabled || (request.isCancelled && request.isCancelled());
  }

 private:
  [[nodiscard]] S3Result<Response> Attempt(const Request& request);
  bool SetClock(const Response& response);
  CURL* TakeHandle();
  void ReturnHandle(CURL* handle);

  const Auth::AWSCredentials credentials;
  const Client::ClientConfiguration config;
  const Endpoint endpoint;
  const int maxAttempts;

  std::atomic<bool> disabled{false};
  std::atomic<long> clockOffset{0};  // seconds by which the service's clock is ahead
  std::mutex lock;
  std::vector<CURL*> idle;
};

// The error that a transfer ends with when it was cancelled.
[[nodiscard]] S3::S3Error CancelledError();

}  // namespace Aws::Compat
