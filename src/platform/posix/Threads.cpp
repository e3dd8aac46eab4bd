#include "platform/Threads.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv::kelvo {
namespace {

// Such a thread weighs a thirtieth of an ordinary one, and its disk requests come last.
constexpr int kNiceness = 15;

}  // namespace

void PrepareThread() {}

std::uint64_t YieldToOtherThreads() {
  // Here the value belongs to the thread, not to its process.
  const auto thread = static_cast<id_t>(syscall(SYS_gettid));
  if (getpriority(PRIO_PROCESS, thread) < kNiceness) {
    (void)setpriority(PRIO_PROCESS, thread, kNiceness);
  }
  return thread;
}

void RaiseThread(std::uint64_t thread) {
  const int ordinary = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
  (void)setpriority(PRIO_PROCESS, static_cast<id_t>(thread), ordinary);
}

}  // namespace qv::kelvo
