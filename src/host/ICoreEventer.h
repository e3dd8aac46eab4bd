#pragma once

#include <cstdint>
#include <string>

#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {

// The face of the host, as all layers above see it; CFilePlugin implements it, tests have a host of
// their own behind it. Any thread: a call goes straight through the host's message function, which
// may take as long as the host likes. The order of the operations is part of the interface.
class ICoreEventer {
 public:
  virtual ~ICoreEventer() = default;

  // Forwards both blocks to the host; 0 without a host function. Blocks are borrowed for the call.
  virtual std::uint32_t SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) = 0;

  // Sends XML text with KELVO_CLASS_EVENT or KELVO_CLASS_BROADCAST. A failure is logged.
  virtual void SendXmlEvent(const std::string& text, std::uint32_t eventClass) = 0;

  // Gives one counted buffer back to the host, which frees it with the last reference: owed once
  // for each buffer that was accepted. A failure is logged.
  virtual void DecrementReference(void* buffer) = 0;

  // The wall clock: seconds since 1970 UTC, truncated to 32 signed bits, and milliseconds. Returns
  // 0.
  virtual std::uint32_t GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) = 0;

  // True once Close was called: what takes long ends early then.
  [[nodiscard]] virtual bool IsStopping() const = 0;
};

// One reference to a buffer of the host, given back at the end of the scope unless it was passed
// on: so an exception on the way leaks no buffer and gives none back twice. Without a buffer there
// is nothing to give back.
class BufferReference {
 public:
  BufferReference(ICoreEventer& core, void* buffer) : Core(core), Buffer(buffer) {}
  ~BufferReference() { Release(); }
  BufferReference(const BufferReference&) = delete;
  BufferReference& operator=(const BufferReference&) = delete;

  // Gives the reference back now.
  void Release() {
    if (Buffer == nullptr) return;
    void* released = Buffer;
    Buffer = nullptr;
    Core.DecrementReference(released);
  }

  // Someone else owns the reference from now on.
  void PassOn() { Buffer = nullptr; }

 private:
  ICoreEventer& Core;
  void* Buffer;
};

}  // namespace qvsvr::kelvo
