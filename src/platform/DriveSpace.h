#pragma once

#include <string>

#include "platform/Drives.h"

namespace qv::kelvo {

// What Drives::Space tells of the drive that holds `path`; the same on every system. Any thread.
[[nodiscard]] std::string MeasureSpace(const std::string& path, DriveSpace& space);

}  // namespace qv::kelvo
