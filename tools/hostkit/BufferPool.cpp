#include "hostkit/BufferPool.h"

#include <bit>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define HOSTKIT_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#else
#define HOSTKIT_POISON(address, size) static_cast<void>(0)
#endif

namespace hostkit {
namespace {
constexpr std::uint64_t kMagic = 0x5245464655424B48;
constexpr std::size_t kAlignment = 64;
constexpr unsigned char kSpoilt = 0xDD;
}  // namespace

struct alignas(kAlignment) BufferPool::Header {
  std::uint64_t magic = kMagic;
  std::atomic<std::int32_t> references{0};
  std::uint32_t sizeClass = 0;
  std::size_t size = 0;
  Header* next = nullptr;

  std::byte* Payload() { return reinterpret_cast<std::byte*>(this + 1); }
  static Header* Of(void* payload) { return static_cast<Header*>(payload) - 1; }
};

BufferPool::BufferPool() : classes(std::make_unique<std::array<SizeClass, kSizeClasses>>()) {}

BufferPool::~BufferPool() {
  for (void* memory : owned) {
    ::operator delete (memory, std::align_val_t{kAlignment});
  }
}

std::size_t BufferPool::ClassOf(std::size_t size, std::size_t& classSize) {
  const std::size_t blocks = size <= kAlignment ? 1 : (size + kAlignment - 1) / kAlignment;
  const std::size_t base = std::bit_floor(blocks);
  const auto power = static_cast<std::size_t>(std::countr_zero(base));
  const std::size_t quarter = base < 4 ? 1 : base / 4;
  std::size_t steps = (blocks - base + quarter - 1) / quarter;
  const std::size_t index = power * 4 + steps;
  if (index >= kSizeClasses) {
    throw std::length_error("buffer too large");
  }
  classSize = (base + steps * quarter) * kAlignment;
  return index;
}

BufferPool::Header* BufferPool::Allocate(std::size_t sizeClass, std::size_t classSize) {
  void* memory = ::operator new (sizeof(Header) + classSize, std::align_val_t{kAlignment});
  auto* header = new (memory) Header;
  header->sizeClass = static_cast<std::uint32_t>(sizeClass);
  header->size = classSize;
  std::lock_guard guard(ownedLock);
  owned.push_back(memory);
  if (quarantine) known.insert(header->Payload());
  return header;
}

std::byte* BufferPool::Take(std::size_t size) {
  std::size_t classSize = 0;
  const std::size_t index = ClassOf(size, classSize);
  auto& sizeClass = (*classes)[index];
  Header* header = nullptr;
  {
    std::lock_guard guard(sizeClass.lock);
    if (sizeClass.free == nullptr) {
      sizeClass.free = sizeClass.returned.exchange(nullptr, std::memory_order_acquire);
    }
    if (sizeClass.free != nullptr) header = std::exchange(sizeClass.free, sizeClass.free->next);
  }
  if (header == nullptr) header = Allocate(index, classSize);
  header->references.store(1, std::memory_order_relaxed);
  if (quarantine && size < header->size) {
    // A read behind the end shall show, too.
    HOSTKIT_POISON(header->Payload() + size, header->size - size);
  }
  return header->Payload();
}

void BufferPool::AddReference(void* buffer) {
  Header::Of(buffer)->references.fetch_add(1, std::memory_order_relaxed);
}

bool BufferPool::IsFree(const void* buffer) {
  return Header::Of(const_cast<void*>(buffer))->references.load(std::memory_order_acquire) <= 0;
}

BufferPool::Released BufferPool::Release(void* buffer,
                                         const std::function<void(const std::byte*)>& last) {
  if (buffer == nullptr) return Released::Unknown;
  if (quarantine) {
    std::lock_guard guard(ownedLock);
    if (!known.contains(buffer)) return Released::Unknown;
  }
  Header* header = Header::Of(buffer);
  if (header->magic != kMagic) return Released::Unknown;
  const auto before = header->references.fetch_sub(1, std::memory_order_acq_rel);
  if (before > 1) return Released::HeldByOthers;
  if (before < 1) return Released::Unknown;
  if (last) last(header->Payload());
  if (quarantine) {
    HOSTKIT_POISON(header->Payload(), header->size);
#if !defined(__SANITIZE_ADDRESS__)
    std::memset(header->Payload(), kSpoilt, header->size);
#endif
    return Released::LastReference;
  }
  auto& returned = (*classes)[header->sizeClass].returned;
  header->next = returned.load(std::memory_order_relaxed);
  while (!returned.compare_exchange_weak(header->next, header, std::memory_order_release,
                                         std::memory_order_relaxed)) {
  }
  return Released::LastReference;
}

}  // namespace hostkit
