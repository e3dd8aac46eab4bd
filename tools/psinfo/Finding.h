#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace psinfo {

// A place where a file breaks a rule of its format.
struct Finding {
  enum class Where { Media, Index };
  Where where;
  std::uint64_t offset;
  std::string rule;
};
using Findings = std::vector<Finding>;

}  // namespace psinfo
