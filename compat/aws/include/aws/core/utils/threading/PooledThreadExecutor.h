#pragma once

#include <cstddef>
#include <memory>

#include "aws/core/utils/threading/Executor.h"

namespace Aws::Utils::Threading {

// A fixed number of threads. The destructor waits for the running tasks and drops the queued ones.
class PooledThreadExecutor : public Executor {
 public:
  explicit PooledThreadExecutor(std::size_t poolSize);
  ~PooledThreadExecutor() override;
  PooledThreadExecutor(const PooledThreadExecutor&) = delete;
  PooledThreadExecutor& operator=(const PooledThreadExecutor&) = delete;

 protected:
  bool SubmitToThread(std::function<void()>&& task) override;

 private:
  struct Pool;
  void Stop();
  std::shared_ptr<Pool> pool;
};

}  // namespace Aws::Utils::Threading
