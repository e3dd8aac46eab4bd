#pragma once

namespace qv::kelvo {

// Brings the memory at `place` towards the processor, which is going to change it. A hint: nothing
// happens where the compiler has none.
inline void PrefetchToChange([[maybe_unused]] const void* place) {
#if defined(__GNUC__)
  __builtin_prefetch(place, 1);
#endif
}

}  // namespace qv::kelvo
