#pragma once

#include <cstdint>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Utils {

// A moment, UTC.
class DateTime {
 public:
  DateTime() = default;
  // From ISO 8601 text; 0 if it is none.
  explicit DateTime(const String& iso);

  [[nodiscard]] std::int64_t Seconds() const { return seconds; }

 private:
  std::int64_t seconds = 0;
};

}  // namespace Aws::Utils
