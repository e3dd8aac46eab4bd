#pragma once

#include <vector>

namespace Aws {

template <typename T>
using Vector = std::vector<T>;

}  // namespace Aws
