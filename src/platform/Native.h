#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <string_view>

#include "platform/Drives.h"

// What the systems' halves of this folder share. For use within it only: elsewhere
// platform/Files.h.
namespace qv::kelvo {

// A UTF-8 path as the system's calls take it, also when it is longer than they do without a prefix.
// What isn't well-formed gets a replacement character.
[[nodiscard]] boost::filesystem::path NativePath(const std::string& path);

// Takes away the mark that keeps a file from being removed or replaced; false where there is none.
[[nodiscard]] bool ClearReadOnly(const std::string& path);

// Whether the whole of `name` matches: `?` is one UTF-8 character, `*` any number of characters;
// ASCII letters match without regard to case. Time is at most the product of both lengths.
[[nodiscard]] bool MatchesPattern(std::string_view name, std::string_view pattern);

// What Drives::Space tells of the drive that holds `path`; the same on every system. Any thread.
[[nodiscard]] std::string MeasureSpace(const std::string& path, DriveSpace& space);

}  // namespace qv::kelvo
