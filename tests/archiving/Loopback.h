#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Listens on a port of its own of the loopback interface; a thread for each connection.
class LoopbackListener {
 public:
  explicit LoopbackListener(std::function<void(int)> serveConnection);
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  [[nodiscard]] int Port() const { return port; }
  [[nodiscard]] std::string Url() const { return "http://localhost:" + std::to_string(port); }

 private:
  void Accept();

  const std::function<void(int)> serve;
  std::mutex lock;
  std::vector<int> sockets;
  std::list<std::thread> connections;
  bool stopping = false;
  int listening = -1;
  int port = 0;
  std::thread acceptor;
};

// Stands between a client and a server on the loopback interface, and holds things up.
class TcpProxy {
 public:
  explicit TcpProxy(int serverPort);
  ~TcpProxy();

  [[nodiscard]] std::string Url() const { return listener.Url(); }
  static constexpr std::size_t kAll = SIZE_MAX;
  // Bytes that pass to the client per second. With 0 connections stay open all the same.
  void SetRate(std::size_t bytesPerSecond);

 private:
  void Relay(int client);
  bool PassToClient(int client, const char* data, std::size_t size);

  const int server;
  std::mutex lock;
  std::condition_variable changed;
  std::size_t rate = kAll;
  bool stopping = false;
  LoopbackListener listener;
};

// Answers each request with what `reply` gives for its head, and closes. For input that no real
// server sends.
class ScriptedServer {
 public:
  explicit ScriptedServer(std::function<std::string(const std::string&)> reply);

  [[nodiscard]] std::string Url() const { return listener.Url(); }
  [[nodiscard]] int Requests() const { return requests; }

 private:
  std::atomic<int> requests{0};
  LoopbackListener listener;
};

// A reply with a document and its true length.
[[nodiscard]] std::string HttpReply(const std::string& body, const std::string& status = "200 OK");
