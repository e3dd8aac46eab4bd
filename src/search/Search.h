#pragma once

#include <cstdint>
#include <string_view>

#include "host/ICoreEventer.h"
#include "search/SearchTargetFileSystem.h"

namespace qvsvr::kelvo {

// One whole search, from the request's text to the last event (docs/host-interface.md), on the
// caller's thread; several may run at once. Everything it has to tell goes to the host by events;
// the result is always 0. Throws nothing.
std::uint32_t Search(std::string_view text, std::uint32_t requestId, SearchTargetFileSystem& target,
                     ICoreEventer& callback) noexcept;

}  // namespace qvsvr::kelvo
