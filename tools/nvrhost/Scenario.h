#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hostkit/ConfigXml.h"

namespace nvrhost {

// A stretch of the recording, in microseconds from its start.
struct Span {
  std::int64_t beginUs = 0;
  std::int64_t lengthUs = 0;
  [[nodiscard]] std::int64_t EndUs() const { return beginUs + lengthUs; }
};

// What happens in front of and around the cameras.
struct Scenario {
  std::int64_t startUs = 0;  // capture time of the start, since 1970 UTC
  std::int64_t durationUs = 0;
  std::int64_t motionEveryUs = 0;  // 0: no motion; a burst begins each period
  std::int64_t motionLengthUs = 0;
  std::vector<Span> alarms;  // number 1, 2...
  std::vector<Span> ptz;
  int preAlarmSeconds = 0;

  [[nodiscard]] bool MotionAt(std::int64_t timeUs) const {
    return motionEveryUs > 0 && timeUs % motionEveryUs < motionLengthUs;
  }
};

// A message of the host at its moment.
struct TimedMessage {
  std::int64_t timeUs;
  std::uint32_t writeClass;
  std::string xml;
};

// The alarms and camera movements of a scenario for these cameras, by time. An alarm's beginning is
// dated back by the pre-alarm time, as a host does that wants the footage before it.
[[nodiscard]] std::vector<TimedMessage> MessagesOf(
    const Scenario& scenario, const std::vector<hostkit::CameraConfig>& cameras,
    int channelsPerDevice);

}  // namespace nvrhost
