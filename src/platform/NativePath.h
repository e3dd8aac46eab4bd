#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace qv::kelvo {

// A UTF-8 path as the system's calls take it, also when it is longer than they do without a prefix.
// What isn't well-formed gets a replacement character. For use within this folder: elsewhere
// platform/Files.h.
[[nodiscard]] boost::filesystem::path NativePath(const std::string& path);

// Takes away the mark that keeps a file from being removed or replaced; false where there is none.
[[nodiscard]] bool ClearReadOnly(const std::string& path);

}  // namespace qv::kelvo
