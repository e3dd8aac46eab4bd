#pragma once

#include <vector>

#include "hostkit/ConfigXml.h"
#include "nvrhost/Console.h"
#include "nvrhost/Feeder.h"
#include "nvrhost/RecordOptions.h"

namespace nvrhost {

// The cameras that the options describe: as the feeder sees them and as the configuration says it,
// in the same order.
struct CameraSet {
  std::vector<Camera> cameras;
  std::vector<hostkit::CameraConfig> configs;
};

// Encodes or loads their material and shows how far it is. Throws std::runtime_error.
[[nodiscard]] CameraSet MakeCameras(const RecordOptions& options, Console& console);

}  // namespace nvrhost
