#pragma once

#include <string>
#include <string_view>

namespace Aws::Compat {

// Percent-encodes all but unreserved characters, and `/` if it is kept.
[[nodiscard]] std::string PercentEncode(std::string_view text, bool keepSlash);

// The MD5 digest in base64, as Content-MD5 has it.
[[nodiscard]] std::string Md5Base64(std::string_view text);

// An upper-case random UUID.
[[nodiscard]] std::string NewUuid();

// The variable's value, "" if it isn't set.
[[nodiscard]] std::string Environment(const char* name);

}  // namespace Aws::Compat
