#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

namespace Aws::Utils::Threading {

// A fixed number of threads, which run tasks in the order in which they came. The destructor waits
// for the running tasks and drops the queued ones. Any thread.
class PooledThreadExecutor {
 public:
  using ThreadMaker = std::function<std::thread(const std::function<void()>&)>;

  // Throws what the making of a thread throws, and leaves none behind then.
  explicit PooledThreadExecutor(std::size_t poolSize, const ThreadMaker& makeThread = {});
  ~PooledThreadExecutor();
  PooledThreadExecutor(const PooledThreadExecutor&) = delete;
  PooledThreadExecutor& operator=(const PooledThreadExecutor&) = delete;

  // Drops the task if the pool is ending.
  void Submit(std::function<void()> task);

 private:
  struct Pool;
  void Stop();
  std::shared_ptr<Pool> pool;
};

}  // namespace Aws::Utils::Threading
