#pragma once

#include <cstddef>
#include <string>

namespace psinfo {

// Name of the field that holds byte `offset` of an index with so many frames.
[[nodiscard]] std::string FieldAt(std::size_t offset, std::size_t frameCount);
// Offset of the field's first byte.
[[nodiscard]] std::size_t FieldStart(std::size_t offset, std::size_t frameCount);

}  // namespace psinfo
