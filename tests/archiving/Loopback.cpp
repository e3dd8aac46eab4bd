#include "tests/archiving/Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <utility>

namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool SendAll(int socket, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t sent = send(socket, data, size, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

}  // namespace

LoopbackListener::LoopbackListener(std::function<void(int)> serveConnection)
    : serve(std::move(serveConnection)), listening(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listening, generic, size) != 0 || listen(listening, 64) != 0 ||
      getsockname(listening, generic, &size) != 0) {
    throw std::runtime_error("cannot listen");
  }
  port = ntohs(address.sin_port);
  acceptor = std::thread([this] { Accept(); });
}

LoopbackListener::~LoopbackListener() {
  {
    const std::lock_guard guard(lock);
    stopping = true;
    for (const int socket : sockets) shutdown(socket, SHUT_RDWR);
  }
  shutdown(listening, SHUT_RDWR);
  acceptor.join();
  for (std::thread& connection : connections) connection.join();
  for (const int socket : sockets) close(socket);
  close(listening);
}

void LoopbackListener::Accept() {
  for (;;) {
    const int socket = accept(listening, nullptr, nullptr);
    if (socket < 0) return;
    const std::lock_guard guard(lock);
    sockets.push_back(socket);
    if (stopping) return;
    connections.emplace_back([this, socket] {
      serve(socket);
      shutdown(socket, SHUT_RDWR);
    });
  }
}

TcpProxy::TcpProxy(int serverPort)
    : server(serverPort), listener([this](int client) { Relay(client); }) {}

TcpProxy::~TcpProxy() {
  const std::lock_guard guard(lock);
  stopping = true;
  changed.notify_all();
}

void TcpProxy::SetRate(std::size_t bytesPerSecond) {
  const std::lock_guard guard(lock);
  rate = bytesPerSecond;
  changed.notify_all();
}

bool TcpProxy::PassToClient(int client, const char* data, std::size_t size) {
  {
    std::unique_lock guard(lock);
    changed.wait(guard, [this] { return rate > 0 || stopping; });
    const std::size_t pace = rate;
    if (pace != 0) {
      changed.wait_for(guard, std::chrono::microseconds(size * 1'000'000 / pace),
                       [&] { return stopping || rate != pace; });
    }
    if (stopping) return false;
  }
  return SendAll(client, data, size);
}

void TcpProxy::Relay(int client) {
  const int upstream = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(server);
  bool open = connect(upstream, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  char buffer[16384];
  while (open) {
    pollfd ready[] = {{client, POLLIN, 0}, {upstream, POLLIN, 0}};
    if (poll(ready, 2, -1) < 0) break;
    if (ready[0].revents != 0) {
      const ssize_t got = recv(client, buffer, sizeof(buffer), 0);
      if (got <= 0) break;
      open = SendAll(upstream, buffer, static_cast<std::size_t>(got));
    }
    if (open && ready[1].revents != 0) {
      const ssize_t got = recv(upstream, buffer, sizeof(buffer), 0);
      open = got > 0 && PassToClient(client, buffer, static_cast<std::size_t>(got));
    }
  }
  close(upstream);
}

ScriptedServer::ScriptedServer(std::function<std::string(const std::string&)> reply)
    : listener([this, reply = std::move(reply)](int client) {
        std::string head;
        char buffer[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
          const ssize_t got = recv(client, buffer, sizeof(buffer), 0);
          if (got <= 0) return;
          head.append(buffer, static_cast<std::size_t>(got));
        }
        ++requests;
        const std::string answer = reply(head);
        SendAll(client, answer.data(), answer.size());
      }) {}

std::string HttpReply(const std::string& body, const std::string& status) {
  return "HTTP/1.1 " + status +
         "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}
