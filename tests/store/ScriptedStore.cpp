#include "tests/store/ScriptedStore.h"

#include <arpa/inet.h>
#include <aws/core/Aws.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <stdexcept>
#include <utility>

namespace testsupport {
namespace {

// The owner of the process initialises the SDK; here that is the test program.
class AwsApi : public testing::Environment {
 public:
  void SetUp() override {
    setenv("AWS_EC2_METADATA_DISABLED", "true", 1);
    setenv("AWS_RETRY_MODE", "standard", 1);
    setenv("AWS_MAX_ATTEMPTS", "1", 1);
    Aws::InitAPI(options);
  }
  void TearDown() override { Aws::ShutdownAPI(options); }

 private:
  Aws::SDKOptions options;
};

[[maybe_unused]] const auto* const api = testing::AddGlobalTestEnvironment(new AwsApi);

bool SendAll(int socket, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t sent = send(socket, data, size, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
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

ScriptedStore::ScriptedStore() : listening(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listening, generic, size) != 0 || listen(listening, 64) != 0 ||
      getsockname(listening, generic, &size) != 0) {
    throw std::runtime_error("cannot listen");
  }
  port = ntohs(address.sin_port);
  acceptor = std::thread([this] { Accept(); });
}

ScriptedStore::~ScriptedStore() {
  {
    const std::lock_guard guard(lock);
    stopping = true;
    for (const int socket : sockets) shutdown(socket, SHUT_RDWR);
  }
  changed.notify_all();
  shutdown(listening, SHUT_RDWR);
  acceptor.join();
  for (std::thread& connection : connections) connection.join();
  for (const int socket : sockets) close(socket);
  close(listening);
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
    const int socket = accept(listening, nullptr, nullptr);
    if (socket < 0) return;
    const std::lock_guard guard(lock);
    sockets.push_back(socket);
    if (stopping) return;
    connections.emplace_back([this, socket] {
      Serve(socket);
      shutdown(socket, SHUT_RDWR);
    });
  }
}

void ScriptedStore::Serve(int socket) {
  std::string text;
  char buffer[16384];
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
      const ssize_t got = recv(socket, buffer, sizeof(buffer), 0);
      if (got <= 0) return;
      text.append(buffer, static_cast<std::size_t>(got));
    }
    if (!Answer(socket, Parse(text.substr(0, end)), text.substr(end + 4, length))) return;
    text.erase(0, end + 4 + length);
  }
}

bool ScriptedStore::Pause(std::chrono::milliseconds time) {
  std::unique_lock guard(lock);
  return !changed.wait_for(guard, time, [this] { return stopping; });
}

bool ScriptedStore::Answer(int socket, const Request& request, std::string body) {
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

bool ScriptedStore::SendBody(int socket, const Turn& turn, const std::string& body) {
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
