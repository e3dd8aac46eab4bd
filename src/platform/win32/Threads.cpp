#include "platform/Threads.h"

#include "platform/win32/Win32.h"

namespace qv::kelvo {

void YieldToOtherThreads() {
  (void)SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_LOWEST);
}

}  // namespace qv::kelvo
