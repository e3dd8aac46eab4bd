#pragma once

namespace qv::kelvo {

// Lets the calling thread, for the rest of its life, run only where nobody else has much use for
// the processor: where it has to share one, it takes a few percent. No effect where the system
// forbids it.
void YieldToOtherThreads();

}  // namespace qv::kelvo
