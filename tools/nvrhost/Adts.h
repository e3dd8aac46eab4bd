#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace nvrhost {

// A raw AAC-LC access unit behind the 7-byte ADTS header that makes it decodable on its own. Throws
// std::runtime_error for a sample rate, channel count or size that ADTS can't tell.
[[nodiscard]] std::vector<std::byte> WithAdtsHeader(std::span<const std::byte> unit, int sampleRate,
                                                    int channels);

}  // namespace nvrhost
