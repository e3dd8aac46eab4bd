#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/ICoreEventer.h"
#include "platform/Clock.h"

namespace qvsvr::kelvo {

// A host of one's own: gathers log lines and XML events and counts buffers. The test fails when a
// buffer is released that isn't out, and at the end when one hasn't come back. Installs itself as
// the host function; one at a time, made before and destroyed after all that uses it. Any thread.
class FakeHost {
 public:
  struct LogLine {
    int level = 0;
    std::string text;
    std::uint32_t length = 0;  // as sent
  };
  struct XmlEvent {
    std::string text;
    std::uint32_t eventClass = 0;
  };

  FakeHost();
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  // A counted buffer with a copy of the content, owing one release, upon which its memory is freed.
  void* NewBuffer(std::string_view content);
  [[nodiscard]] std::size_t Outstanding() const;

  void SetThreshold(std::uint32_t level) { threshold = level; }
  // What XML events and releases are answered with.
  void SetAnswer(std::uint32_t returned, std::uint32_t status);
  // Takes requests of other kinds; they are answered 0 without it. Set it before they can come.
  std::function<std::uint32_t(const KelvoHostRequest&, KelvoHostReply&)> onOther;

  [[nodiscard]] std::vector<LogLine> Lines() const { return Copy(lines); }
  // Lines that contain `text`, at any level or at one.
  [[nodiscard]] std::size_t CountLines(std::string_view text) const;
  [[nodiscard]] std::size_t CountLines(int level, std::string_view text) const;
  [[nodiscard]] std::vector<XmlEvent> Events() const { return Copy(events); }
  void ForgetTraffic();  // lines and events; buffers stay counted

  // Waits for what another thread does, at most ten seconds; false if it didn't come.
  bool WaitForLine(std::string_view text);

 private:
  static std::uint32_t Receive(const KelvoHostRequest* request, KelvoHostReply* reply);
  std::uint32_t Handle(const KelvoHostRequest& request, KelvoHostReply& reply);
  template <class T>
  T Copy(const T& value) const {
    const std::lock_guard lock(mutex);
    return value;
  }

  mutable std::mutex mutex;
  std::condition_variable changed;
  std::vector<LogLine> lines;
  std::vector<XmlEvent> events;
  std::map<const void*, std::unique_ptr<char[]>> live;
  std::uint32_t answerReturned = 0;
  std::uint32_t answerStatus = 0;
  std::atomic<std::uint32_t> threshold{KELVO_LOG_NO_THRESHOLD};
};

// The plug-in's face towards the host, for what is tested without the plug-in.
class FakeCore : public ICoreEventer {
 public:
  explicit FakeCore(qv::kelvo::Clock& time) : clock(time) {}

  std::uint32_t SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) override;
  void SendXmlEvent(const std::string& text, std::uint32_t eventClass) override;
  void DecrementReference(void* buffer) override;
  std::uint32_t GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) override;
  bool IsStopping() const override { return stopping; }

  std::atomic<bool> stopping{false};

 private:
  void Send(KelvoHostRequest& request);

  qv::kelvo::Clock& clock;
};

}  // namespace qvsvr::kelvo
