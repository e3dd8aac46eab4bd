#pragma once

#include <functional>
#include <utility>

namespace Aws::Utils::Threading {

// Runs tasks on other threads.
class Executor {
 public:
  virtual ~Executor() = default;

  template <typename Fn, typename... Args>
  bool Submit(Fn&& task, Args&&... args) {
    return SubmitToThread(std::bind(std::forward<Fn>(task), std::forward<Args>(args)...));
  }

 protected:
  // False if the task was refused.
  virtual bool SubmitToThread(std::function<void()>&& task) = 0;
};

}  // namespace Aws::Utils::Threading
