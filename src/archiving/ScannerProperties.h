#pragma once

#include <map>
#include <string>

namespace qvArchiving {

// The configuration of one archive target, all values as text.
using ScannerProperties = std::map<std::string, std::string>;

namespace property {
inline constexpr char kType[] = "Type";
inline constexpr char kFullName[] = "FullName";                  // the target's address
inline constexpr char kFullyMountedPath[] = "FullyMountedPath";  // prefix of its local copies
inline constexpr char kUserName[] = "UserName";
inline constexpr char kPassword[] = "Password";
inline constexpr char kVerifySSL[] = "VerifySSL";  // "true" turns certificate checks on
inline constexpr char kSuppressWorkingFiles[] = "SuppressWorkingFiles";  // presence counts
inline constexpr char kCacheEnable[] = "CacheEnable";                    // presence counts
inline constexpr char kCacheSizeGigabytes[] = "CacheSizeGigabytes";
inline constexpr char kCacheRetentionSeconds[] = "CacheRetentionSeconds";
// Known to configurations, without effect.
inline constexpr char kMultipart[] = "Multipart";
inline constexpr char kDirection[] = "Direction";
inline constexpr char kRegion[] = "Region";
}  // namespace property

// The number that the text begins with. Throws std::invalid_argument if there is none and
// std::out_of_range if it doesn't fit.
[[nodiscard]] int ParseDecimal(const std::string& text);

// The property's value, "" if it is absent.
[[nodiscard]] std::string PropertyOr(const ScannerProperties& properties, const char* key);

}  // namespace qvArchiving
