#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <utility>

#include "platform/Clock.h"

namespace qvsvr::kelvo {

// How much one call may do before it leaves the rest to the next. A little is done behind the
// deadline, too: on a busy machine time passes without work, and mostly that little is all there is
// to do.
class WorkLimit {
 public:
  // What things cost, in steps to a further hour or file.
  static constexpr std::uint64_t kListing = 64;
  static constexpr std::uint64_t kHead = 256;
  static constexpr std::uint64_t kRemoval = 64;

  // How long one call may hold up the worker.
  static constexpr std::int64_t kCallNs = 60'000'000;

  // Until `stop` tells so, which may be empty, and, unless `patient`, for a call's time from now
  // on.
  WorkLimit(qv::kelvo::Clock& borrowed, std::function<bool()> stopped, bool patient)
      : clock(borrowed),
        stop(std::move(stopped)),
        deadlineNs(patient ? std::numeric_limits<std::int64_t>::max()
                           : clock.SteadyNs() + kCallNs) {}

  void Spend(std::uint64_t steps) { spent += steps; }

  [[nodiscard]] bool Patient() const {
    return deadlineNs == std::numeric_limits<std::int64_t>::max();
  }
  [[nodiscard]] bool Stopped() const { return stop && stop(); }
  [[nodiscard]] bool Met() {
    if (spent < nextLook) return false;
    nextLook = spent + kLook;
    return Stopped() || (spent >= kLeast && clock.SteadyNs() >= deadlineNs);
  }

 private:
  static constexpr std::uint64_t kLeast = 4 * kHead;
  static constexpr std::uint64_t kLook = 8;  // the clock isn't asked at each step

  qv::kelvo::Clock& clock;
  const std::function<bool()> stop;
  const std::int64_t deadlineNs;
  std::uint64_t spent = 0;
  std::uint64_t nextLook = 0;
};

}  // namespace qvsvr::kelvo
