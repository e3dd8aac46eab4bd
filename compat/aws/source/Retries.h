#pragma once

#include <algorithm>
#include <chrono>

namespace Aws::Compat {

// How long to wait after so many failures in a row: 0, 50, 100, 200 ... milliseconds, 20 seconds at
// most, however often a request may be repeated.
constexpr std::chrono::milliseconds RetryDelay(int failures) {
  constexpr int kDoublings = 10;
  if (failures <= 1) return {};
  return std::min(std::chrono::milliseconds(20'000),
                  std::chrono::milliseconds(25L << std::min(failures - 1, kDoublings)));
}

}  // namespace Aws::Compat
