#pragma once

#include <string>
#include <string_view>

namespace qvsvr::kelvo {

// Whether the bytes are UTF-8 throughout: no cut, overlong or surrogate sequence.
[[nodiscard]] bool IsUtf8(std::string_view bytes);

// The bytes as UTF-8. What is UTF-8 stays; each other byte is taken for Windows-1252, of which
// ISO-8859-1 is a part. Each of those becomes another character, so that names in that encoding
// stay apart; none has an outcome that isn't UTF-8.
[[nodiscard]] std::string ToUtf8(std::string_view bytes);

// The same with every byte above 127 taken for Windows-1252.
[[nodiscard]] std::string Utf8FromLatin(std::string_view bytes);

}  // namespace qvsvr::kelvo
