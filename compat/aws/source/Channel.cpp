#include "Channel.h"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <thread>

#include "Retries.h"

namespace Aws::Compat {

using S3::S3Error;
using S3::S3Errors;

namespace {

constexpr std::size_t kMaxHeaders = 64u << 10;
constexpr long kReceiveBuffer = 256L << 10;
constexpr int kDefaultAttempts = 11;
constexpr int kStandardAttempts = 3;
constexpr std::chrono::milliseconds kSlice(25);  // cancelling is noticed so soon between attempts
constexpr char kSkewed[] = "RequestTimeTooSkewed";
constexpr long kAcceptedSkew = 240;  // seconds
constexpr char kWriteFailed[] = "Failed to flush response stream (eof: 0, bad: 0)";

int Attempts(bool standard) {
  if (!standard) return kDefaultAttempts;
  const int given = std::atoi(Environment("AWS_MAX_ATTEMPTS").c_str());
  return given > 0 ? given : kStandardAttempts;
}

// State of one attempt, for the library's callbacks.
struct Exchange {
  const Channel& channel;
  const Request& request;
  CURL* handle;
  Response response;
  std::ostream* sink = nullptr;
  curl_off_t sent = 0;
  std::size_t headerBytes = 0;
  bool cancelled = false;
  bool writeFailed = false;

  [[nodiscard]] long Status() const {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    return status;
  }
  bool CheckCancelled() {
    cancelled = cancelled || channel.IsCancelled(request);
    return cancelled;
  }
};

// Takes a piece of the answer's body; false to end the exchange.
bool TakeBody(Exchange& exchange, const char* data, std::size_t size) {
  if (exchange.CheckCancelled()) return false;
  const Request& request = exchange.request;
  const bool good = exchange.Status() / 100 == 2;
  exchange.response.received += size;
  if (exchange.response.received > (good ? request.maxBody : kMaxReply)) return false;
  if (!good || !request.openSink) {
    exchange.response.body.append(data, size);
  } else {
    if (exchange.sink == nullptr) exchange.sink = request.openSink();
    exchange.writeFailed =
        exchange.sink == nullptr || !exchange.sink->write(data, static_cast<std::streamsize>(size));
    if (exchange.writeFailed) return false;
  }
  if (good && request.onBytes) request.onBytes(size);
  return true;
}

// No exception passes through the library.
std::size_t OnBody(char* data, std::size_t, std::size_t size, void* user) try {
  return TakeBody(*static_cast<Exchange*>(user), data, size) ? size : 0;
} catch (...) {
  return 0;
}

std::size_t OnHeader(char*, std::size_t, std::size_t size, void* user) {
  Exchange& exchange = *static_cast<Exchange*>(user);
  exchange.headerBytes += size;
  return exchange.headerBytes > kMaxHeaders ? 0 : size;
}

int OnProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) try {
  Exchange& exchange = *static_cast<Exchange*>(user);
  if (exchange.CheckCancelled()) return 1;
  const curl_off_t more = sent - std::exchange(exchange.sent, sent);
  if (more > 0 && exchange.request.onBytes) {
    exchange.request.onBytes(static_cast<std::size_t>(more));
  }
  return 0;
} catch (...) {
  return 1;
}

void TakeHeaders(Exchange& exchange) {
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(exchange.handle, CURLH_HEADER, -1, header)) != nullptr) {
    exchange.response.headers[boost::algorithm::to_lower_copy(std::string(header->name))] =
        header->value;
  }
}

S3Error ServiceError(const std::string& name, const std::string& message, long status) {
  const bool retry = status >= 500 || status == 429 || name == "SlowDown";
  return {status == 416 ? S3Errors::INVALID_RANGE : S3Errors::UNKNOWN, name, message, retry};
}

S3Error ErrorOf(const XmlElement& reply, long status) {
  return ServiceError(reply.ChildText("Code"), reply.ChildText("Message"), status);
}

S3Error ErrorOf(const std::string& body, long status) {
  XmlElement reply;
  if (!body.empty() && ParseXml(body, reply)) return ErrorOf(reply, status);
  return ServiceError(
      "", body.empty() ? "No response body." : "The response body is no XML document.", status);
}

S3Error TransportError(CURLcode code, const Exchange& exchange) {
  if (exchange.cancelled) return CancelledError();
  if (exchange.writeFailed) return {S3Errors::INTERNAL_FAILURE, "", kWriteFailed, false};
  return {S3Errors::NETWORK_CONNECTION, "",
          "curlCode: " + std::to_string(code) + ", " + curl_easy_strerror(code),
          code != CURLE_WRITE_ERROR};  // more than a reply may hold
}

void SetMethod(CURL* handle, const Request& request) {
  if (std::string_view(request.method) == "GET") return;
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.body.empty() ? "" : request.body.data());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                   static_cast<curl_off_t>(request.body.size()));
  curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method);
  curl_easy_setopt(handle, CURLOPT_EXPECT_100_TIMEOUT_MS, 300L);
}

void SetCallbacks(CURL* handle, Exchange& exchange) {
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &exchange);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, OnHeader);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &exchange);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, OnProgress);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &exchange);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
}

void SetTransport(CURL* handle, const Client::ClientConfiguration& config) {
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, kReceiveBuffer);
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(handle, CURLOPT_PROXY, "");  // proxies are a matter of the configuration only
  curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, config.verifySSL ? 1L : 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, config.verifySSL ? 2L : 0L);
  // A store's own authority, or a network without others, has no list of what was revoked.
  curl_easy_setopt(handle, CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_REVOKE_BEST_EFFORT));
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, config.connectTimeoutMs);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, std::max(1L, config.requestTimeoutMs / 1000));
}

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

HeaderList Headers(const std::vector<std::string>& lines) {
  // The body's hash is left out of the signature, and the service wants to be told so.
  HeaderList list(curl_slist_append(nullptr, "x-amz-content-sha256: UNSIGNED-PAYLOAD"));
  for (const std::string& line : lines) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    (void)list.release();
    list.reset(longer);
  }
  return list;
}

std::string QueryText(const Request& request) {
  std::string text;
  for (const auto& [name, value] : request.query) {
    text += (text.empty() ? "?" : "&") + name + "=" + PercentEncode(value, false);
  }
  return text;
}

}  // namespace

S3Error CancelledError() {
  return {S3Errors::USER_CANCELLED, "", "Request cancelled by user's continuation handler", false};
}

Channel::Channel(Auth::AWSCredentials keys, const Client::ClientConfiguration& configuration,
                 bool useVirtualAddressing)
    : credentials(std::move(keys)),
      config(configuration),
      endpoint(configuration, useVirtualAddressing),
      maxAttempts(Attempts(Environment("AWS_RETRY_MODE") == "standard")) {}

Channel::~Channel() {
  for (CURL* handle : idle) curl_easy_cleanup(handle);
}

CURL* Channel::TakeHandle() {
  {
    const std::lock_guard guard(lock);
    if (!idle.empty()) {
      CURL* handle = idle.back();
      idle.pop_back();
      return handle;
    }
  }
  CURL* handle = curl_easy_init();
  if (handle == nullptr) throw std::bad_alloc();
  return handle;
}

void Channel::ReturnHandle(CURL* handle) {
  curl_easy_reset(handle);  // keeps its connections
  const std::lock_guard guard(lock);
  if (idle.size() < config.maxConnections) {
    idle.push_back(handle);
  } else {
    curl_easy_cleanup(handle);
  }
}

S3Result<Response> Channel::Attempt(const Request& request) {
  if (IsCancelled(request)) return CancelledError();
  if (request.onAttempt) request.onAttempt();
  const auto giveBack = [this](CURL* handle) { ReturnHandle(handle); };
  const std::unique_ptr<CURL, decltype(giveBack)> owner(TakeHandle(), giveBack);
  CURL* handle = owner.get();
  Exchange exchange{*this, request, handle, {}};
  const std::string url = endpoint.Url(request.bucket, request.key) + QueryText(request);
  std::vector<std::string> lines = request.headers;
  if (const long ahead = clockOffset) {
    const std::time_t now = std::time(nullptr) + ahead;
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "X-Amz-Date: %Y%m%dT%H%M%SZ", std::gmtime(&now));
    lines.emplace_back(stamp);
  }
  const HeaderList headers = Headers(lines);
  SetTransport(handle, config);
  SetMethod(handle, request);
  SetCallbacks(handle, exchange);
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
  if (!request.range.empty()) curl_easy_setopt(handle, CURLOPT_RANGE, request.range.c_str());
  curl_easy_setopt(handle, CURLOPT_AWS_SIGV4, ("aws:amz:" + config.region + ":s3").c_str());
  curl_easy_setopt(handle, CURLOPT_USERNAME, credentials.GetAWSAccessKeyId().c_str());
  curl_easy_setopt(handle, CURLOPT_PASSWORD, credentials.GetAWSSecretKey().c_str());
  const CURLcode code = curl_easy_perform(handle);
  if (code != CURLE_OK) return TransportError(code, exchange);
  TakeHeaders(exchange);
  const long status = exchange.Status();
  if (status / 100 != 2) {
    S3Error error = ErrorOf(exchange.response.body, status);
    if (error.GetExceptionName() != kSkewed || !SetClock(exchange.response)) return error;
    return S3Error(error.GetErrorType(), kSkewed, error.GetMessage(), true);
  }
  if (exchange.sink != nullptr && !exchange.sink->flush()) {
    exchange.writeFailed = true;
    return TransportError(code, exchange);
  }
  return std::move(exchange.response);
}

// By the date of an answer; false if that is of no help.
bool Channel::SetClock(const Response& response) {
  const auto date = response.headers.find("date");
  if (date == response.headers.end()) return false;
  const std::time_t theirs = curl_getdate(date->second.c_str(), nullptr);
  if (theirs < 0) return false;
  const long offset = static_cast<long>(theirs - std::time(nullptr));
  const long before = clockOffset.exchange(offset);
  return std::abs(offset - before) > kAcceptedSkew;
}

S3Result<Response> Channel::Send(const Request& request) {
  for (int failures = 0;;) {
    S3Result<Response> outcome = Attempt(request);
    if (outcome.IsSuccess() || !outcome.GetError().ShouldRetry()) return outcome;
    if (outcome.GetError().GetExceptionName() == kSkewed) continue;  // once, see SetClock
    if (++failures >= maxAttempts) return outcome;
    const auto end = std::chrono::steady_clock::now() + RetryDelay(failures);
    while (std::chrono::steady_clock::now() < end) {
      if (IsCancelled(request)) return CancelledError();
      std::this_thread::sleep_for(kSlice);
    }
  }
}

S3Result<XmlElement> Channel::SendForXml(const Request& request, std::string_view rootName) {
  S3Result<Response> outcome = Send(request);
  if (!outcome.IsSuccess()) return outcome.GetError();
  XmlElement root;
  if (!ParseXml(outcome.GetResult().body, root)) {
    return S3Error(S3Errors::UNKNOWN, "Xml Parse Error", "The reply is no XML document.", false);
  }
  if (root.name == "Error") return ErrorOf(root, 200);  // a failure found after the headers left
  if (root.name != rootName) {
    return S3Error(S3Errors::UNKNOWN, "Xml Parse Error", "Unexpected reply " + root.name, false);
  }
  return root;
}

}  // namespace Aws::Compat
