#include "aws/core/utils/threading/Executor.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace Aws::Utils::Threading {

struct PooledThreadExecutor::Pool {
  std::mutex lock;
  std::condition_variable changed;
  std::deque<std::function<void()>> tasks;
  bool stopping = false;
  std::vector<std::thread> threads;

  void Run() {
    std::unique_lock guard(lock);
    for (;;) {
      changed.wait(guard, [this] { return stopping || !tasks.empty(); });
      if (stopping) return;
      std::function<void()> task = std::move(tasks.front());
      tasks.pop_front();
      guard.unlock();
      task();
      task = nullptr;
      guard.lock();
    }
  }
};

PooledThreadExecutor::PooledThreadExecutor(std::size_t poolSize, const ThreadMaker& makeThread)
    : pool(std::make_shared<Pool>()) {
  const std::function<void()> run = [keep = pool] { keep->Run(); };
  try {
    for (std::size_t i = 0; i < poolSize; ++i) {
      const std::lock_guard guard(pool->lock);
      pool->threads.push_back(makeThread ? makeThread(run) : std::thread(run));
    }
  } catch (...) {
    Stop();  // those that were made
    throw;
  }
}

PooledThreadExecutor::~PooledThreadExecutor() {
  Stop();
}

void PooledThreadExecutor::Stop() {
  std::deque<std::function<void()>> dropped;
  std::vector<std::thread> threads;
  {
    const std::lock_guard guard(pool->lock);
    pool->stopping = true;
    dropped.swap(pool->tasks);
    threads.swap(pool->threads);
  }
  pool->changed.notify_all();
  for (std::thread& thread : threads) {
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();  // a task took the last reference with it
    } else {
      thread.join();
    }
  }
}

void PooledThreadExecutor::Submit(std::function<void()> task) {
  {
    const std::lock_guard guard(pool->lock);
    if (pool->stopping) return;
    pool->tasks.push_back(std::move(task));
  }
  pool->changed.notify_one();
}

}  // namespace Aws::Utils::Threading
