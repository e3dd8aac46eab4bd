#pragma once

#include "platform/Platform.h"

namespace qvsvr::kelvo {

// The operating system that this module runs on. Each module that has the exports defines it once.
[[nodiscard]] qv::kelvo::Platform& PluginPlatform();

}  // namespace qvsvr::kelvo
