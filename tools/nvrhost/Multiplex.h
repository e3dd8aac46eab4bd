#pragma once

#include <cstdint>
#include <string>

namespace nvrhost {

// Several cameras as the channels of one device, so that they share its files: camera c becomes
// channel c % n of device c / n.

// Renumbers a message that describes each camera as a device of its own. With one channel for each
// device the message stays as it is.
[[nodiscard]] std::string Multiplex(const std::string& xml, int channelsPerDevice);

// The same for the provider id of a camera's frames.
[[nodiscard]] std::uint32_t MultiplexProvider(std::uint32_t provider, int channelsPerDevice);

}  // namespace nvrhost
