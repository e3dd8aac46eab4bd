#pragma once

#include <map>
#include <string>

namespace Aws {

using String = std::string;

template <typename K, typename V>
using Map = std::map<K, V>;

}  // namespace Aws
