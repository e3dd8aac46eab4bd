#include "hostkit/SimHost.h"

#include <algorithm>
#include <boost/dll/shared_library.hpp>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace hostkit {
namespace {

// The host function carries no context.
std::atomic<SimHost*> current{nullptr};

constexpr std::uint32_t kReplyUntouched = 0xEEEEEEEE;

std::string_view PayloadText(const KelvoHostRequest& request) {
  if (request.Payload == nullptr) return {};
  std::string_view text(static_cast<const char*>(request.Payload), request.Length);
  if (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  return text;
}

std::chrono::steady_clock::time_point Deadline(int timeoutMs) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
}

}  // namespace

struct SimHost::Module {
  boost::dll::shared_library library;
};

SimHost::SimHost(const std::string& modulePath) : module(std::make_unique<Module>()) {
  try {
    module->library.load(boost::filesystem::path(modulePath),
                         boost::dll::load_mode::rtld_now | boost::dll::load_mode::rtld_local);
  } catch (const std::exception& error) {
    throw std::runtime_error("can't load " + modulePath + ": " + error.what());
  }
  const struct {
    const char* name;
    KelvoExport& function;
  } wanted[] = {{"Load", exports.Load},   {"Open", exports.Open},    {"Read", exports.Read},
                {"Write", exports.Write}, {"Seek", exports.Seek},    {"IOCTL", exports.IOCTL},
                {"Close", exports.Close}, {"Unload", exports.Unload}};
  for (const auto& one : wanted) {
    if (!module->library.has(one.name)) {
      throw std::runtime_error(modulePath + " doesn't export " + one.name);
    }
    one.function = &module->library.get<std::uint32_t(void*, void*)>(one.name);
  }
  SimHost* nobody = nullptr;
  if (!current.compare_exchange_strong(nobody, this)) {
    throw std::runtime_error("there is a simulated host already");
  }
}

SimHost::~SimHost() {
  if (loaded) Unload();
  module->library.unload();
  current.store(nullptr);
}

void SimHost::Load() {
  KelvoLoadInput input{};
  KelvoModuleDescriptor descriptor{};
  input.HostFunction = &SimHost::HostFunction;
  exports.Load(&input, &descriptor);
  loaded = true;
}

void SimHost::Open() {
  exports.Open(nullptr, nullptr);
}

void SimHost::Close() {
  exports.Close(nullptr, nullptr);
}

void SimHost::Unload() {
  exports.Unload(nullptr, nullptr);
  loaded = false;
}

std::byte* SimHost::NewBuffer(std::size_t size) {
  auto* buffer = pool.Take(size);
  outstanding.fetch_add(1);
  return buffer;
}

std::byte* SimHost::NewBuffer(std::string_view content) {
  auto* buffer = NewBuffer(content.size());
  std::memcpy(buffer, content.data(), content.size());
  return buffer;
}

void SimHost::Release(void* buffer) {
  switch (pool.Release(buffer, onRelease)) {
    case BufferPool::Released::HeldByOthers:
      return;
    case BufferPool::Released::Unknown:
      badReleases.fetch_add(1);
      return;
    case BufferPool::Released::LastReference:
      break;
  }
  if (outstanding.fetch_sub(1) - 1 <= wantedOutstanding.load() || bufferWaiters.load() > 0) {
    std::lock_guard guard(waitLock);
    released.notify_all();
  }
}

void SimHost::AddReference(void* buffer) {
  BufferPool::AddReference(buffer);
}

bool SimHost::WaitOutstanding(std::int64_t count, int timeoutMs) {
  if (outstanding.load() <= count) return true;
  std::unique_lock guard(waitLock);
  ++waiters;
  wantedOutstanding.store(std::max(wantedOutstanding.load(), count));
  const bool reached =
      released.wait_until(guard, Deadline(timeoutMs), [&] { return outstanding.load() <= count; });
  if (--waiters == 0) wantedOutstanding.store(-1);
  return reached;
}

bool SimHost::WaitReleased(const void* buffer, int timeoutMs) {
  std::unique_lock guard(waitLock);
  bufferWaiters.fetch_add(1);
  const bool free =
      released.wait_until(guard, Deadline(timeoutMs), [&] { return BufferPool::IsFree(buffer); });
  bufferWaiters.fetch_sub(1);
  return free;
}

bool SimHost::WriteBlock(const KelvoWriteBlock& block) {
  KelvoWriteReply reply{};
  reply.Result = kReplyUntouched;
  reply.Accepted = kReplyUntouched;
  exports.Write(const_cast<KelvoWriteBlock*>(&block), &reply);
  if (reply.Accepted == 1) return true;
  Release(block.Payload);
  return false;
}

bool SimHost::WriteFrame(std::uint32_t provider, const KelvoFrameHeader& header, std::byte* buffer,
                         std::uint32_t length, std::uint32_t subCode) {
  KelvoWriteBlock block{};
  block.Length = length;
  block.Payload = buffer;
  block.Source = provider;
  block.Class = KELVO_WRITE_FRAME;
  block.SubCode = subCode;
  block.Header = header;
  return WriteBlock(block);
}

bool SimHost::WriteXml(std::uint32_t writeClass, std::string_view xml) {
  KelvoWriteBlock block{};
  block.Length = static_cast<std::uint32_t>(xml.size() + 1);
  block.Payload = NewBuffer(std::string(xml) + '\0');
  block.Class = writeClass;
  return WriteBlock(block);
}

bool SimHost::Ioctl(std::uint32_t operation, std::string_view xml) {
  KelvoIoctlBlock block{};
  block.Operation = operation;
  block.Length = static_cast<std::uint32_t>(xml.size() + 1);
  block.Payload = NewBuffer(std::string(xml) + '\0');
  KelvoIoctlReply reply{};
  reply.Accepted = kReplyUntouched;
  exports.IOCTL(&block, &reply);
  if (reply.Accepted == 1) return true;
  Release(block.Payload);
  return false;
}

void SimHost::Read(std::string_view requestXml, std::uint32_t requestId) {
  KelvoReadBlock block{};
  block.Length = static_cast<std::uint32_t>(requestXml.size());
  block.Payload = requestXml.data();
  block.RequestId = requestId;
  KelvoReadReply reply{};
  exports.Read(&block, &reply);
}

void* SimHost::Symbol(const char* name) const {
  return module->library.has(name) ? &module->library.get<char>(name) : nullptr;
}

std::vector<SimHost::LogLine> SimHost::TakeLog() {
  std::lock_guard guard(toldLock);
  return std::exchange(logLines, {});
}

std::vector<SimHost::Event> SimHost::TakeEvents() {
  std::lock_guard guard(toldLock);
  return std::exchange(events, {});
}

bool SimHost::WaitForLog(std::string_view text, int timeoutMs) {
  std::unique_lock guard(toldLock);
  return told.wait_until(guard, Deadline(timeoutMs), [&] {
    return std::any_of(logLines.begin(), logLines.end(), [&](const LogLine& line) {
      return line.text.find(text) != std::string::npos;
    });
  });
}

bool SimHost::WaitForEvent(std::string_view text, int timeoutMs) {
  std::unique_lock guard(toldLock);
  return told.wait_until(guard, Deadline(timeoutMs), [&] {
    return std::any_of(events.begin(), events.end(), [&](const Event& event) {
      return event.xml.find(text) != std::string::npos;
    });
  });
}

std::uint32_t SimHost::HostFunction(const KelvoHostRequest* request, KelvoHostReply* reply) {
  SimHost* host = current.load(std::memory_order_acquire);
  if (host == nullptr || request == nullptr || reply == nullptr) return 1;
  return host->Handle(*request, *reply);
}

std::uint32_t SimHost::Handle(const KelvoHostRequest& request, KelvoHostReply& reply) {
  switch (request.Class) {
    case KELVO_CLASS_RELEASE:
      Release(const_cast<void*>(request.Payload));
      return 0;
    case KELVO_CLASS_LOG:
      if (request.SubCode == KELVO_SUB_LOG_LEVEL) {
        reply.Status = logLevel.load(std::memory_order_relaxed);
      } else {
        NoteLog(request);
      }
      return 0;
    case KELVO_CLASS_EVENT:
    case KELVO_CLASS_BROADCAST:
      NoteEvent(request);
      return 0;
    case KELVO_CLASS_SEARCH:
      if (onSearch) reply.Status = onSearch(request);
      return 0;
    default:
      return 1;
  }
}

void SimHost::NoteLog(const KelvoHostRequest& request) {
  LogLine line{request.u.Log.Level, std::string(PayloadText(request))};
  if (onLog) {
    onLog(line);
    return;
  }
  std::lock_guard guard(toldLock);
  logLines.push_back(std::move(line));
  told.notify_all();
}

void SimHost::NoteEvent(const KelvoHostRequest& request) {
  Event event{request.Class, std::string(PayloadText(request))};
  if (onEvent) {
    onEvent(event);
    return;
  }
  std::lock_guard guard(toldLock);
  events.push_back(std::move(event));
  told.notify_all();
}

}  // namespace hostkit
