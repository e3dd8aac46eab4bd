#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "host/Log.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {

namespace {

std::atomic<FakeHost*> current{nullptr};

// At any level if `level` is below 0; paths compare whatever their separators are.
std::size_t Count(const std::vector<FakeHost::LogLine>& lines, int level, std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(), [&](const FakeHost::LogLine& line) {
        return (level < 0 || line.level == level) &&
               qv::kelvo::Slashed(line.text).find(qv::kelvo::Slashed(text)) != std::string::npos;
      }));
}

}  // namespace

FakeHost::FakeHost() {
  FakeHost* none = nullptr;
  if (!current.compare_exchange_strong(none, this)) ADD_FAILURE() << "there is a host already";
  SetHostFunction(&FakeHost::Receive);
}

FakeHost::~FakeHost() {
  SetHostFunction(nullptr);
  current = nullptr;
  EXPECT_EQ(live.size(), 0U) << "buffers of the host were never released";
}

void* FakeHost::NewBuffer(std::string_view content) {
  // Never of size 0, so that each buffer has an address of its own.
  auto memory = std::make_unique<char[]>(std::max<std::size_t>(content.size(), 1));
  if (!content.empty()) std::memcpy(memory.get(), content.data(), content.size());
  void* buffer = memory.get();
  const std::lock_guard lock(mutex);
  live.emplace(buffer, std::move(memory));
  return buffer;
}

std::size_t FakeHost::Outstanding() const {
  const std::lock_guard lock(mutex);
  return live.size();
}

void FakeHost::SetAnswer(std::uint32_t returned, std::uint32_t status) {
  const std::lock_guard lock(mutex);
  answerReturned = returned;
  answerStatus = status;
}

std::size_t FakeHost::CountLines(std::string_view text) const {
  return Count(Lines(), -1, text);
}

std::size_t FakeHost::CountLines(int level, std::string_view text) const {
  return Count(Lines(), level, text);
}

void FakeHost::ForgetTraffic() {
  const std::lock_guard lock(mutex);
  lines.clear();
  events.clear();
}

bool FakeHost::WaitForLine(std::string_view text) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::seconds(10),
                          [&] { return Count(lines, -1, text) > 0; });
}

std::uint32_t FakeHost::Receive(const KelvoHostRequest* request, KelvoHostReply* reply) {
  FakeHost* host = current;
  if (host == nullptr || request == nullptr || reply == nullptr) return 1;
  EXPECT_EQ(request->Size, 192U);
  EXPECT_EQ(request->Version, 1U);
  EXPECT_EQ(reply->Size, 12U);
  EXPECT_EQ(reply->Version, 1U);
  EXPECT_EQ(reply->Status, 0U);
  return host->Handle(*request, *reply);
}

std::uint32_t FakeHost::Handle(const KelvoHostRequest& request, KelvoHostReply& reply) {
  const auto text = [&](std::size_t length) {
    return std::string(static_cast<const char*>(request.Payload), length);
  };
  if (request.Class == KELVO_CLASS_LOG && request.SubCode == KELVO_SUB_LOG_LEVEL) {
    reply.Status = threshold;
    return 0;
  }
  std::unique_lock lock(mutex);
  if (request.Class == KELVO_CLASS_LOG && request.SubCode == KELVO_SUB_LOG_LINE) {
    const std::size_t length = request.Length - 1;
    EXPECT_EQ(static_cast<const char*>(request.Payload)[length], '\0');
    lines.push_back({static_cast<int>(request.u.Log.Level), text(length), request.Length});
  } else if (request.SubCode == KELVO_SUB_XML_EVENT) {
    events.push_back({text(request.Length), request.Class});
    reply.Status = answerStatus;
  } else if (request.Class == KELVO_CLASS_RELEASE) {
    if (live.erase(request.Payload) != 1) ADD_FAILURE() << "a buffer is released that isn't out";
    reply.Status = answerStatus;
  } else {
    lock.unlock();
    return onOther ? onOther(request, reply) : 0;
  }
  changed.notify_all();
  return request.Class == KELVO_CLASS_LOG ? 0 : answerReturned;
}

std::uint32_t FakeCore::SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) {
  const KelvoHostFunction host = HostFunction();
  return host == nullptr ? 0 : host(&request, &reply);
}

void FakeCore::SendXmlEvent(const std::string& text, std::uint32_t eventClass) {
  KelvoHostRequest request{};
  request.Length = static_cast<std::uint32_t>(text.size());
  request.Payload = text.data();
  request.Class = eventClass;
  request.SubCode = KELVO_SUB_XML_EVENT;
  Send(request);
}

void FakeCore::DecrementReference(void* buffer) {
  KelvoHostRequest request{};
  request.Payload = buffer;
  request.Class = KELVO_CLASS_RELEASE;
  Send(request);
}

std::uint32_t FakeCore::GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) {
  const qv::kelvo::UtcMs now = clock.NowMs();
  seconds = static_cast<std::int32_t>(now / 1000);
  milliseconds = static_cast<std::uint16_t>(now % 1000);
  return 0;
}

void FakeCore::Send(KelvoHostRequest& request) {
  request.Size = sizeof(request);
  request.Version = 1;
  request.Source = KELVO_MODULE_ID;
  KelvoHostReply reply{sizeof(KelvoHostReply), 1, 0};
  (void)SendHostMessage(request, reply);  // tests look at what the host got
}

}  // namespace qvsvr::kelvo
