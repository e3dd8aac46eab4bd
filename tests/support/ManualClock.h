#pragma once

#include <atomic>
#include <functional>

#include "platform/Clock.h"

namespace qv::kelvo {

// A clock that stands still until a test moves it. Any thread.
class ManualClock : public Clock {
 public:
  explicit ManualClock(UtcMs start = 1'750'000'000'000) : now(start) {}

  UtcMs NowMs() override { return now.load(); }
  std::int64_t SteadyNs() override { return steady.load(); }

  // Takes no time but the clock's; then whoever was waited for gets its turn.
  void Pause(int milliseconds) override {
    Advance(milliseconds);
    if (onPause) onPause();
  }
  std::function<void()> onPause;

  // Moves both clocks forward.
  void Advance(std::int64_t milliseconds) {
    now += milliseconds;
    steady += milliseconds * 1'000'000;
  }
  // Sets the wall clock only, as an operator does.
  void SetNow(UtcMs time) { now = time; }

 private:
  std::atomic<UtcMs> now;
  std::atomic<std::int64_t> steady{1'000'000'000};
};

}  // namespace qv::kelvo
