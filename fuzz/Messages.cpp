// XML messages of every kind through the exports, up to the worker that applies them. The first
// byte chooses the kind. Run with -detect_leaks=0: libFuzzer would look while the worker is at
// work.

#include <sanitizer/lsan_interface.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "kelvo/host_abi.h"

extern "C" std::uint32_t Load(void*, void*), Open(void*, void*), Write(void*, void*),
    IOCTL(void*, void*), Close(void*, void*), Unload(void*, void*);

namespace {

std::atomic<std::uint32_t> released{0};

std::uint32_t Host(const KelvoHostRequest* request, KelvoHostReply*) {
  if (request->Class == KELVO_CLASS_RELEASE) {
    ++released;
    released.notify_all();
  }
  return 0;
}

void Give(std::uint8_t kind, std::string& text) {
  const std::uint32_t before = released;
  KelvoWriteBlock write{};
  KelvoIoctlBlock ioctl{};
  KelvoWriteReply reply{};
  write.Class = kind % 4 == 0 ? KELVO_WRITE_ACTION : KELVO_WRITE_PTZ;
  ioctl.Operation = kind % 4 == 2 ? KELVO_IOCTL_CONFIGURATION : KELVO_IOCTL_SYSTEM;
  write.Length = ioctl.Length = static_cast<std::uint32_t>(text.size());
  write.Payload = ioctl.Payload = text.data();
  (void)(kind % 4 < 2 ? Write(&write, &reply) : IOCTL(&ioctl, &reply));
  released.wait(before);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static unsigned rounds = 0;
  if (size < 2) return 0;
  if (rounds++ % 256 == 0) {  // what was configured doesn't pile up
    Unload(nullptr, nullptr);
    if (__lsan_do_recoverable_leak_check() != 0) std::abort();
    KelvoLoadInput input{};
    KelvoModuleDescriptor descriptor{};
    input.HostFunction = Host;
    Load(&input, &descriptor);
    Open(nullptr, nullptr);
  }
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  Give(data[0], text);
  return 0;
}
