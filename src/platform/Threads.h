#pragma once

#include <cstdint>

namespace qv::kelvo {

// Every thread of ours begins with this: no message box comes of a medium that vanishes.
void PrepareThread();

// The same for a thread that, from then on, runs only where nobody else has much use for the
// processor or the disk. No effect where the system forbids it. Returns what the thread is raised
// by.
[[nodiscard]] std::uint64_t YieldToOtherThreads();

// Gives a thread its ordinary share again, since somebody waits for it: a low priority would
// otherwise be his as well. It must not have been joined. Any thread.
void RaiseThread(std::uint64_t thread);

}  // namespace qv::kelvo
