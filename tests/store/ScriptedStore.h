#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

// An S3 store on a port of its own of the loopback interface, which answers well unless its script
// has something else in mind. It believes all signatures. Any thread.
class ScriptedStore {
 public:
  struct Request {
    std::string method, key, query;
    std::string head;                            // as it came
    std::uint64_t first = 0, last = UINT64_MAX;  // of the range asked for
    [[nodiscard]] bool IsListing() const { return method == "GET" && key.empty(); }
    [[nodiscard]] bool IsFetch() const { return method == "GET" && !key.empty(); }
  };
  static constexpr std::size_t kNever = SIZE_MAX;
  // What becomes of one answer.
  struct Turn {
    int status = 0;                         // told in place of what was asked for
    std::chrono::milliseconds delay{0};     // ahead of it
    std::size_t cutAt = kNever;             // the connection ends behind so many bytes of the body
    std::size_t stallAt = kNever;           // the rest waits for the next script
    std::size_t bytesPerSecond = kNever;    // of the body
    std::optional<std::uint64_t> length{};  // announced, whatever comes
    std::optional<std::string> raw{};       // the whole answer
  };
  using Script = std::function<Turn(const Request&)>;

  ScriptedStore();
  ~ScriptedStore();
  ScriptedStore(const ScriptedStore&) = delete;
  ScriptedStore& operator=(const ScriptedStore&) = delete;

  // Buckets are part of the path; all of them hold the same.
  [[nodiscard]] std::string Url() const;

  void Put(const std::string& key, const std::string& content);
  [[nodiscard]] std::string Get(const std::string& key);
  // From now on, and lets go on what stalls.
  void Follow(Script script);
  // All that came since the last call.
  std::vector<Request> TakeRequests();
  // Until so many that pass came since TakeRequests; false after half a minute.
  bool WaitFor(std::size_t count, const std::function<bool(const Request&)>& passes);

 private:
  using Tcp = boost::asio::ip::tcp;
  struct Connection;

  void Accept();
  void Serve(Connection& connection);
  // What comes, "" at the end.
  std::string Receive(Connection& connection);
  [[nodiscard]] bool Answer(Tcp::socket& socket, const Request& request, std::string body);
  [[nodiscard]] bool SendBody(Tcp::socket& socket, const Turn& turn, const std::string& body);
  [[nodiscard]] std::string ListingFor(const Request& request);
  // False when the store ends meanwhile.
  bool Pause(std::chrono::milliseconds time);

  std::mutex lock;
  std::condition_variable changed;
  std::map<std::string, std::string> objects;
  Script script;
  std::uint64_t scripts = 0;
  std::vector<Request> requests;
  bool stopping = false;
  boost::asio::io_context context;
  Tcp::acceptor listening;
  std::list<std::thread> connections;
  std::thread acceptor;
};

// An answer with a document and its true length, after which the connection ends.
[[nodiscard]] std::string HttpReply(const std::string& body, const std::string& status = "200 OK");
// The document of a listing with these entries.
[[nodiscard]] std::string Listing(const std::string& entries);

// A variable of the process's environment.
void SetVariable(const char* name, const std::string& value);
// Sends the requests of clients that are made from now on to this address.
void RedirectRequests(const std::string& url);

// Bytes that differ from one place to the next.
[[nodiscard]] std::string SampleBytes(std::size_t size, unsigned seed = 1);

}  // namespace testsupport
