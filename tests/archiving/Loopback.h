#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

// Listens on a port of its own of the loopback interface, answers one request after the other with
// what `reply` gives for its head, and closes. For input that no real server sends.
class ScriptedServer {
 public:
  using Reply = std::function<std::string(const std::string& head)>;

  // Answers go in pieces of 16 KiB, each after a pause.
  explicit ScriptedServer(Reply replyTo, std::chrono::milliseconds pauses = {})
      : reply(std::move(replyTo)), pause(pauses) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listening, generic, size) != 0 || listen(listening, 64) != 0 ||
        getsockname(listening, generic, &size) != 0) {
      throw std::runtime_error("cannot listen");
    }
    url = "http://localhost:" + std::to_string(ntohs(address.sin_port));
    server = std::thread([this] { Serve(); });
  }
  ~ScriptedServer() {
    shutdown(listening, SHUT_RDWR);
    server.join();
    close(listening);
  }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] const std::string& Url() const { return url; }
  [[nodiscard]] int Requests() const { return requests; }

 private:
  void Serve() {
    for (int client = 0; (client = accept(listening, nullptr, nullptr)) >= 0;) {
      Answer(client);
      close(client);
    }
  }
  void Answer(int client) {
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos) {
      const ssize_t got = recv(client, buffer, sizeof(buffer), 0);
      if (got <= 0) return;
      head.append(buffer, static_cast<std::size_t>(got));
    }
    ++requests;
    const std::string answer = reply(head);
    for (std::size_t at = 0; at < answer.size();) {
      std::this_thread::sleep_for(pause);
      const std::size_t piece = std::min<std::size_t>(16 << 10, answer.size() - at);
      const ssize_t sent = send(client, &answer[at], piece, MSG_NOSIGNAL);
      if (sent <= 0) return;
      at += static_cast<std::size_t>(sent);
    }
  }

  const Reply reply;
  const std::chrono::milliseconds pause;
  std::atomic<int> requests{0};
  const int listening = socket(AF_INET, SOCK_STREAM, 0);
  std::string url;
  std::thread server;
};
