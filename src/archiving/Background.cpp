#include "archiving/Background.h"

#include <system_error>

#include "platform/Threads.h"

namespace qvArchiving {

Background::~Background() {
  for (Worker& worker : workers) worker.thread.join();
}

void Background::Run(const std::function<void()>& task) {
  const auto begin = [&]() -> bool {
    const std::lock_guard guard(lock);
    workers.remove_if([](Worker& worker) {
      if (worker.over) worker.thread.join();
      return worker.over;
    });
    Worker& worker = workers.emplace_back();
    try {
      worker.thread = std::thread([this, &worker, task] {
        qv::kelvo::PrepareThread();
        task();
        const std::lock_guard ending(lock);
        worker.over = true;
      });
      return true;
    } catch (const std::system_error&) {
      workers.pop_back();
      return false;
    }
  };
  if (!begin()) task();
}

}  // namespace qvArchiving
