// The eight functions that the host calls (include/kelvo/host_abi.h, docs/host-interface.md).

#include <wx/debug.h>
#include <wx/log.h>

#include <memory>
#include <string_view>

#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "shell/PluginLife.h"

namespace {

using qvsvr::kelvo::CFilePlugin;
using qvsvr::kelvo::Guarded;
using qvsvr::kelvo::PluginLife;
using qvsvr::kelvo::RecordMessage;

constexpr std::uint32_t kRefused = 0xFFFFFFFFu;

// Never destroyed: a host that ends its process without an Unload may have threads waiting in it.
template <class Object>
union Forever {
  Forever() : object() {}
  ~Forever() {}
  Object object;
};
// Closed while there is no plug-in, so that blocks need not ask for one.
Forever<qvsvr::kelvo::RecordQueue> foreverQueue;
qvsvr::kelvo::RecordQueue& queue = foreverQueue.object;
Forever<PluginLife> foreverLife;
PluginLife& life = foreverLife.object;

// Runs the body of an export; no exception reaches the host.
template <typename Body>
std::uint32_t Export(const char* name, Body body) noexcept {
  (void)Guarded(name, body);
  return 0;
}

// wxWidgets must not show or print anything in the host's process.
void SilenceWx() {
  delete wxLog::SetActiveTarget(nullptr);
  wxLog::DontCreateOnDemand();
  wxDisableAsserts();
}

// Fixed numbers by which the host knows this kind of module; nothing here depends on them.
void Describe(KelvoModuleDescriptor& descriptor) {
  descriptor.ModuleId = KELVO_MODULE_ID;
  descriptor.CapabilityWord0 = 0x0600006C;
  descriptor.CapabilityWord1 = 0x06000084;
  descriptor.CapabilityWord2 = 0x02000010;
  descriptor.CapabilityWord3 = 0x02000010;
  descriptor.DescriptorTag = 0x0101;
  descriptor.DescriptorValue = 25;
}

void LoadPlugin(const KelvoLoadInput* input, KelvoModuleDescriptor* descriptor) {
  life.Replace([&] {
    SilenceWx();
    if (descriptor != nullptr) Describe(*descriptor);
    qvsvr::kelvo::SetHostFunction(input == nullptr ? nullptr : input->HostFunction);
    return std::make_unique<CFilePlugin>(qvsvr::kelvo::PluginPlatform(), queue);
  });
}

// On the host's capture threads: a copy of the block into the queue. What this module has sent
// itself comes back by the host's distribution and is passed over.
void WriteBlock(const KelvoWriteBlock& block, KelvoWriteReply& reply) {
  if (block.Refuse != 0) {
    reply.Result = kRefused;
    return;
  }
  if (block.Source == KELVO_MODULE_ID) {
    reply.Result = 0;
    return;
  }
  reply.Accepted = 0;
  reply.Accepted = queue.Enqueue({0, block.Length, block.Payload, block.Source, block.Class,
                                  block.SubCode, block.Header})
                       ? 1
                       : 0;
}

// An empty request, or one without a plug-in, leaves the reply as it was.
void ReadBlock(const KelvoReadBlock& block, KelvoReadReply& reply) {
  if (block.Payload == nullptr || block.Length == 0) return;
  const PluginLife::Call target(life);
  if (!target) return;
  const std::string_view text(static_cast<const char*>(block.Payload), block.Length);
  reply.Result = target->Search(text, block.RequestId);
}

void Ioctl(const KelvoIoctlBlock& block, KelvoIoctlReply& reply) {
  if (block.Operation != KELVO_IOCTL_CONFIGURATION && block.Operation != KELVO_IOCTL_SYSTEM) {
    reply.Status = kRefused;
    return;
  }
  if (block.Payload == nullptr || static_cast<std::int32_t>(block.Length) < 1) return;
  RecordMessage message;
  message.Type = block.Operation;
  message.Length = block.Length;
  message.Payload = block.Payload;
  reply.Accepted = 0;
  reply.Accepted = queue.Enqueue(message) ? 1 : 0;
}

}  // namespace

extern "C" {

KELVO_EXPORT std::uint32_t Load(void* input, void* output) {
  return Export("Load", [&] {
    LoadPlugin(static_cast<const KelvoLoadInput*>(input),
               static_cast<KelvoModuleDescriptor*>(output));
  });
}

KELVO_EXPORT std::uint32_t Open(void* /*input*/, void* /*output*/) {
  return Export("Open", [] {
    if (const PluginLife::Call target(life); target) target->Open(KELVO_VERSION);
  });
}

KELVO_EXPORT std::uint32_t Read(void* request, void* reply) {
  if (request == nullptr || reply == nullptr) return 0;
  return Export("Read", [&] {
    ReadBlock(*static_cast<const KelvoReadBlock*>(request), *static_cast<KelvoReadReply*>(reply));
  });
}

KELVO_EXPORT std::uint32_t Write(void* request, void* reply) {
  if (request == nullptr || reply == nullptr) return 0;
  return Export("Write", [&] {
    WriteBlock(*static_cast<const KelvoWriteBlock*>(request),
               *static_cast<KelvoWriteReply*>(reply));
  });
}

KELVO_EXPORT std::uint32_t Seek(void* /*request*/, void* reply) {
  if (reply != nullptr) static_cast<KelvoSeekReply*>(reply)->Result = kRefused;
  return 0;
}

KELVO_EXPORT std::uint32_t IOCTL(void* request, void* reply) {
  if (request == nullptr || reply == nullptr) return 0;
  return Export("IOCTL", [&] {
    Ioctl(*static_cast<const KelvoIoctlBlock*>(request), *static_cast<KelvoIoctlReply*>(reply));
  });
}

KELVO_EXPORT std::uint32_t Close(void* /*input*/, void* /*output*/) {
  return Export("Close", [] {
    if (const PluginLife::Call target(life); target) target->Close();
  });
}

KELVO_EXPORT std::uint32_t Unload(void* /*input*/, void* /*output*/) {
  return Export("Unload", [] { life.Replace([] { return nullptr; }); });
}

}  // extern "C"
