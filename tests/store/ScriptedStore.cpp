#include "tests/store/ScriptedStore.h"

#include <aws/core/Aws.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <utility>

namespace testsupport {
namespace {

// The owner of the process initialises the SDK; here that is the test program.
class AwsApi : public testing::Environment {
 public:
  void SetUp() override {
    SetVariable("AWS_EC2_METADATA_DISABLED", "true");
    SetVariable("AWS_RETRY_MODE", "standard");
    SetVariable("AWS_MAX_ATTEMPTS", "1");
    Aws::InitAPI(options);
  }
  void TearDown() override { Aws::ShutdownAPI(options); }

 private:
  Aws::SDKOptions options;
};

[[maybe_unused]] const auto* const api = testing::AddGlobalTestEnvironment(new AwsApi);

bool SendAll(boost::asio::ip::tcp::socket& socket, const char* data, std::size_t size) {
  boost::system::error_code failed;
  boost::asio::write(socket, boost::asio::buffer(data, size), failed);
  return !failed;
}

std::string Decoded(const std::string& text) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      out += text[at];
    } else {
      out += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
      at += 2;
    }
  }
  return out;
}

std::string Parameter(const std::string& query, const std::string& name) {
  const std::size_t at = ("&" + query).find("&" + name + "=");
  if (at == std::string::npos) return {};
  const std::size_t begin = at + name.size() + 1;
  return Decoded(query.substr(begin, query.find('&', begin) - begin));
}

ScriptedStore::Request Parse(const std::string& head) {
  ScriptedStore::Request request;
  request.head = head;
  request.method = head.substr(0, head.find(' '));
  const std::size_t begin = head.find(' ') + 1;
  std::string path = head.substr(begin, head.find(' ', begin) - begin);
  if (const std::size_t mark = path.find('?'); mark != std::string::npos) {
    request.query = path.substr(mark + 1);
    path.resize(mark);
  }
  const std::size_t slash = path.find('/', 1);  // behind the bucket
  if (slash != std::string::npos) request.key = Decoded(path.substr(slash + 1));
  if (const std::size_t range = head.find("bytes="); range != std::string::npos) {
    unsigned long long first = 0, last = UINT64_MAX;
    std::sscanf(head.c_str() + range, "bytes=%llu-%llu", &first, &last);
    request.first = first;
    request.last = last;
  }
  return request;
}

}  // namespace

std::string HttpReply(const std::string& body, const std::string& status) {
  return "HTTP/1.1 " + status +
         "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

std::string Listing(const std::string& entries) {
  return "<?xml version=\"1.0\"?><ListBucketResult xmlns=\"x\">" + entries + "</ListBucketResult>";
}

void SetVariable(const char* name, const std::string& value) {
#ifdef _WIN32
  _putenv_s(name, value.c_str());
#else
  setenv(name, value.c_str(), 1);
#endif
}

void RedirectRequests(const std::string& url) {
  SetVariable("AWS_ENDPOINT_URL_S3", url);
}

std::string SampleBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  std::ranges::generate(bytes, [&random] { return static_cast<char>(random()); });
  return bytes;
}

// Used by its own thread only: not every system ends a call when another thread closes the socket.
struct ScriptedStore::Connection {
  boost::asio::io_context context;
  Tcp::socket socket{context};
};

ScriptedStore::ScriptedStore()
    : listening(context, Tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0)),
      acceptor([this] { Accept(); }) {}

ScriptedStore::~ScriptedStore() {
  {
    const std::lock_guard guard(lock);
    stopping = true;
  }
  changed.notify_all();
  boost::system::error_code ignored;
  Tcp::socket(context).connect(listening.local_endpoint(), ignored);  // ends the accepting
  acceptor.join();
  for (std::thread& connection : connections) connection.join();
}

std::string ScriptedStore::Url() const {
  return "http://127.0.0.1:" + std::to_string(listening.local_endpoint().port());
}

void ScriptedStore::Put(const std::string& key, const std::string& content) {
  const std::lock_guard guard(lock);
  objects[key] = content;
}

std::string ScriptedStore::Get(const std::string& key) {
  const std::lock_guard guard(lock);
  return objects[key];
}

void ScriptedStore::Follow(Script next) {
  const std::lock_guard guard(lock);
  script = std::move(next);
  ++scripts;
  changed.notify_all();
}

std::vector<ScriptedStore::Request> ScriptedStore::TakeRequests() {
  const std::lock_guard guard(lock);
  return std::exchange(requests, {});
}

bool ScriptedStore::WaitFor(std::size_t count, const std::function<bool(const Request&)>& passes) {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, std::chrono::seconds(30), [&] {
    return static_cast<std::size_t>(std::ranges::count_if(requests, passes)) >= count;
  });
}

void ScriptedStore::Accept() {
  for (;;) {
    const auto connection = std::make_shared<Connection>();
    boost::system::error_code ignored;
    listening.accept(connection->socket, ignored);
    const std::lock_guard guard(lock);
    if (stopping) return;
    connections.emplace_back([this, connection] { Serve(*connection); });
  }
}

std::string ScriptedStore::Receive(Connection& connection) {
  std::string bytes(16384, '\0');
  bool over = false;
  connection.socket.async_read_some(boost::asio::buffer(bytes),
                                    [&](const boost::system::error_code&, std::size_t size) {
                                      bytes.resize(size);
                                      over = true;
                                    });
  while (!over) {
    if (!Pause({})) connection.socket.close();
    connection.context.restart();
    connection.context.run_for(std::chrono::milliseconds(50));
  }
  return bytes;
}

void ScriptedStore::Serve(Connection& connection) {
  std::string text;
  for (;;) {
    std::size_t end = 0;
    std::size_t length = 0;
    for (;;) {
      end = text.find("\r\n\r\n");
      if (end != std::string::npos) {
        const std::size_t at = text.find("Content-Length: ");
        length = at < end ? std::stoul(text.substr(at + 16)) : 0;
        if (text.size() >= end + 4 + length) break;
      }
      const std::string more = Receive(connection);
      if (more.empty()) return;
      text += more;
    }
    const Request request = Parse(text.substr(0, end));
    if (!Answer(connection.socket, request, text.substr(end + 4, length))) return;
    text.erase(0, end + 4 + length);
  }
}

bool ScriptedStore::Pause(std::chrono::milliseconds time) {
  std::unique_lock guard(lock);
  return !changed.wait_for(guard, time, [this] { return stopping; });
}

bool ScriptedStore::Answer(Tcp::socket& socket, const Request& request, std::string body) {
  Script asked;
  {
    const std::lock_guard guard(lock);
    requests.push_back(request);
    asked = script;
  }
  changed.notify_all();
  const Turn turn = asked ? asked(request) : Turn();
  if (!Pause(turn.delay)) return false;
  if (turn.raw) {
    SendAll(socket, turn.raw->data(), turn.raw->size());
    return false;
  }
  int status = turn.status != 0 ? turn.status : 200;
  std::string more;
  if (status != 200) {
    body = "<Error><Code>Scripted</Code><Message>as told</Message></Error>";
  } else if (request.IsListing()) {
    body = ListingFor(request);
  } else {
    const std::lock_guard guard(lock);
    const auto object = objects.find(request.key);
    if (request.method == "PUT") {
      objects[request.key] = std::exchange(body, {});
    } else if (object == objects.end()) {
      status = 404;
    } else if (request.head.find("bytes=") == std::string::npos) {
      body = object->second;
    } else if (request.first >= object->second.size()) {
      status = 416;
    } else {
      const std::uint64_t last = std::min<std::uint64_t>(request.last, object->second.size() - 1);
      body = object->second.substr(request.first, last - request.first + 1);
      status = 206;
      more = "Content-Range: bytes " + std::to_string(request.first) + "-" + std::to_string(last) +
             "/" + std::to_string(object->second.size()) + "\r\n";
    }
  }
  const std::string head = "HTTP/1.1 " + std::to_string(status) + " x\r\nETag: \"e\"\r\n" + more +
                           "Content-Length: " + std::to_string(turn.length.value_or(body.size())) +
                           "\r\n\r\n";
  if (!SendAll(socket, head.data(), head.size())) return false;
  return request.method == "HEAD" || SendBody(socket, turn, body);
}

bool ScriptedStore::SendBody(Tcp::socket& socket, const Turn& turn, const std::string& body) {
  const bool drips = turn.bytesPerSecond != kNever;
  const std::size_t piece =
      drips ? std::max<std::size_t>(1, turn.bytesPerSecond / 10) : body.size();
  std::size_t stallAt = turn.stallAt;
  for (std::size_t sent = 0; sent < body.size();) {
    if (sent >= turn.cutAt) return false;
    if (sent >= stallAt) {
      stallAt = kNever;
      std::unique_lock guard(lock);
      changed.wait(guard, [this, now = scripts] { return stopping || scripts != now; });
      if (stopping) return false;
    }
    const std::size_t size =
        std::min({piece, body.size() - sent, turn.cutAt - sent, stallAt - sent});
    if (drips && !Pause(std::chrono::milliseconds(100))) return false;
    if (!SendAll(socket, body.data() + sent, size)) return false;
    sent += size;
  }
  return turn.length.value_or(body.size()) == body.size();
}

std::string ScriptedStore::ListingFor(const Request& request) {
  const std::string prefix = Parameter(request.query, "prefix");
  const bool cuts = !Parameter(request.query, "delimiter").empty();
  std::string contents;
  std::set<std::string> prefixes;
  const std::lock_guard guard(lock);
  for (const auto& [key, content] : objects) {
    if (!key.starts_with(prefix)) continue;
    const std::size_t slash = key.find('/', prefix.size());
    if (cuts && slash != std::string::npos) {
      prefixes.insert(key.substr(0, slash + 1));
    } else {
      contents += "<Contents><Key>" + key + "</Key><Size>" + std::to_string(content.size()) +
                  "</Size></Contents>";
    }
  }
  for (const std::string& text : prefixes) {
    contents += "<CommonPrefixes><Prefix>" + text + "</Prefix></CommonPrefixes>";
  }
  return Listing(contents);
}

}  // namespace testsupport
