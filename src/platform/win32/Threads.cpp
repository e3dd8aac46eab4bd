#include "platform/Threads.h"

#include "platform/win32/Win32.h"

namespace qv::kelvo {

void PrepareThread() {
  (void)SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, nullptr);
}

std::uint64_t YieldToOtherThreads() {
  PrepareThread();
  // A lower one gets nothing on a busy machine, and holds up whoever waits for it.
  (void)SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL);
  return GetCurrentThreadId();
}

void RaiseThread(std::uint64_t thread) {
  const OwnedHandle handle(OpenThread(THREAD_SET_INFORMATION, FALSE, static_cast<DWORD>(thread)));
  if (handle) (void)SetThreadPriority(handle.get(), THREAD_PRIORITY_NORMAL);
}

void LowerIfYielding(HANDLE file) {
  if (GetThreadPriority(GetCurrentThread()) != THREAD_PRIORITY_BELOW_NORMAL) return;
  FILE_IO_PRIORITY_HINT_INFO hint{};
  hint.PriorityHint = IoPriorityHintLow;
  (void)SetFileInformationByHandle(file, FileIoPriorityHintInfo, &hint, sizeof hint);
}

}  // namespace qv::kelvo
