#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <vector>

namespace hostkit {

// Counted buffers of a host. A header with the count stands in front of each payload; payloads are
// aligned to 64 bytes. Released buffers are reused by size, or, in quarantine, spoilt and never
// given out again, so that a late use or a second release shows. Memory goes back with the pool.
// Any thread.
class BufferPool {
 public:
  enum class Released { LastReference, HeldByOthers, Unknown };

  BufferPool();
  ~BufferPool();
  BufferPool(const BufferPool&) = delete;
  BufferPool& operator=(const BufferPool&) = delete;

  // Set before the first buffer. In quarantine a pointer that the pool never made is told apart
  // safely; without it only by the header in front of it.
  void SetQuarantine(bool on) { quarantine = on; }

  // A payload of at least `size` bytes with one reference; its content is what was left there.
  [[nodiscard]] std::byte* Take(std::size_t size);
  // `buffer` holds a reference of the caller's.
  static void AddReference(void* buffer);
  // `last`, unless empty, is called as the last reference goes, with the payload still whole.
  [[nodiscard]] Released Release(void* buffer, const std::function<void(const std::byte*)>& last);
  // Whether any reference is left. In quarantine only: elsewhere the room may be in use again.
  [[nodiscard]] static bool IsFree(const void* buffer);

 private:
  struct Header;
  // Buffers of one size: those in `free` belong to takers, who hold `lock`; releasers push to
  // `returned`, which takers empty at once, so that a release takes no lock.
  struct SizeClass {
    std::mutex lock;
    Header* free = nullptr;
    std::atomic<Header*> returned{nullptr};
  };
  // Four sizes per power of two, from 64 bytes up.
  static constexpr std::size_t kSizeClasses = 4 * 32;

  static std::size_t ClassOf(std::size_t size, std::size_t& classSize);
  Header* Allocate(std::size_t sizeClass, std::size_t classSize);

  std::unique_ptr<std::array<SizeClass, kSizeClasses>> classes;
  bool quarantine = false;
  std::mutex ownedLock;
  std::vector<void*> owned;
  std::unordered_set<const void*> known;  // payloads, in quarantine only
};

}  // namespace hostkit
