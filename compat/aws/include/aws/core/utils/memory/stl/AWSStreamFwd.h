#pragma once

#include <iosfwd>

namespace Aws {

using FStream = std::fstream;
using IOStream = std::iostream;

}  // namespace Aws
