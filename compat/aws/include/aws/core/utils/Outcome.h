#pragma once

#include <utility>

namespace Aws::Utils {

// A result or an error.
template <typename R, typename E>
class Outcome {
 public:
  Outcome() = default;
  Outcome(R value) : result(std::move(value)), success(true) {}
  Outcome(E value) : error(std::move(value)) {}

  [[nodiscard]] bool IsSuccess() const { return success; }
  [[nodiscard]] const R& GetResult() const { return result; }
  [[nodiscard]] R& GetResult() { return result; }
  R&& GetResultWithOwnership() { return std::move(result); }
  [[nodiscard]] const E& GetError() const { return error; }

 private:
  R result{};
  E error{};
  bool success = false;
};

}  // namespace Aws::Utils
