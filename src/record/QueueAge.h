#pragma once

#include <cstdint>

namespace qvsvr::kelvo {

// Watches how long messages wait for the worker. To be used under the queue's lock.
class QueueAge {
 public:
  enum class Change { None, Late, InTime };

  // Takes the age of the oldest message; `last` when no other is queued. Tells when messages begin
  // to come late and when that is over.
  [[nodiscard]] Change Note(std::uint32_t ageMs, bool last);

 private:
  bool late = false;
};

}  // namespace qvsvr::kelvo
