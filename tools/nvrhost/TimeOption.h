#pragma once

#include <cstdint>
#include <string>

namespace nvrhost {

inline constexpr std::int64_t kEarliestTime =
    946'684'800;  // 2000, the first year that a file can tell
inline constexpr std::int64_t kLatestTime = 4'294'967'295;  // a frame's seconds have 32 bits

// Seconds since 1970 of "YYYY-MM-DD HH:MM:SS" (local, or UTC with a Z behind it) or "@SECONDS".
// Throws std::runtime_error that names the option.
[[nodiscard]] std::int64_t ParseTime(const std::string& option, const std::string& text);

}  // namespace nvrhost
