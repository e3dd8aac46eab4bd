#pragma once

#include "host/ICoreEventer.h"

namespace qvsvr::kelvo {

// One reference to a buffer of the host, given back at the end of the scope unless it was passed
// on. Without a buffer there is nothing to give back.
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
