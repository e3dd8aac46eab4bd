#pragma once

#include <cstdint>

namespace qv::kelvo {

// Milliseconds since 1970-01-01 UTC. The unit of every moment inside the process.
using UtcMs = std::int64_t;

// The only source of time. Any thread may call it; the object outlives all users.
class Clock {
 public:
  virtual ~Clock() = default;

  // Wall clock. May jump in either direction when the system's clock is set.
  [[nodiscard]] virtual UtcMs NowMs() = 0;

  // Monotonic nanoseconds from an arbitrary start; never goes back.
  [[nodiscard]] virtual std::int64_t SteadyNs() = 0;

  // Holds the calling thread up for about so long. Only for what another program is waited for.
  virtual void Pause(int milliseconds) = 0;
};

}  // namespace qv::kelvo
