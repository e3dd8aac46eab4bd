#pragma once

#include <string_view>

namespace qv::kelvo {

// Whether the whole of `name` matches: `?` is one UTF-8 character, `*` any number of characters;
// ASCII letters match without regard to case. Time is at most the product of both lengths.
[[nodiscard]] bool MatchesPattern(std::string_view name, std::string_view pattern);

}  // namespace qv::kelvo
