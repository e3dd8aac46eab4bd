#pragma once

#include <cstddef>
#include <span>

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {

// The picture that one key frame makes on its own, or null.
[[nodiscard]] FramePtr DecodeKeyFrame(AVCodecID codec, std::span<const std::byte> payload);

// A packet with a copy of the payload.
[[nodiscard]] PacketPtr NewPacket(std::span<const std::byte> payload);

}  // namespace nvrhost
