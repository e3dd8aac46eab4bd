#pragma once

#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace qvArchiving {

// Threads for what may take long, one for each. Any thread.
class Background {
 public:
  Background() = default;
  // Waits for all of them.
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // On the caller's thread where no other can be had. The task must not throw.
  void Run(const std::function<void()>& task);

 private:
  struct Worker {
    std::thread thread;
    bool over = false;
  };

  std::mutex lock;
  std::list<Worker> workers;
};

}  // namespace qvArchiving
