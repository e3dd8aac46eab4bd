#pragma once

#include <string>

namespace nvrhost {

// Everything once, in half a minute: records four cameras into a directory, lists them, plays them
// back and compares every frame, exports one and has it decoded, makes the contact sheet. Ends with
// a report of what was checked; returns 0, or 1 if a check failed. Throws std::runtime_error.
int Demo(const std::string& directory, double seconds, const std::string& programPath);

}  // namespace nvrhost
