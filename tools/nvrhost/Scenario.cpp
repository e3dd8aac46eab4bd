#include "nvrhost/Scenario.h"

#include <algorithm>

#include "kelvo/host_abi.h"
#include "nvrhost/Multiplex.h"

namespace nvrhost {
namespace {
constexpr int kPtzMove = 17;
constexpr int kPtzStop = 31;
}  // namespace

std::vector<TimedMessage> MessagesOf(const Scenario& scenario,
                                     const std::vector<hostkit::CameraConfig>& cameras,
                                     int channelsPerDevice) {
  std::vector<TimedMessage> messages;
  const auto add = [&](std::int64_t timeUs, std::uint32_t writeClass, const std::string& xml) {
    messages.push_back({timeUs, writeClass, Multiplex(xml, channelsPerDevice)});
  };
  const auto addAlarm = [&](const hostkit::CameraConfig& camera, bool video, int number,
                            const Span& span) {
    const auto send = [&](std::int64_t timeUs, bool begins, std::int64_t backUs) {
      const std::int64_t utcMs = (scenario.startUs + timeUs - backUs) / 1000;
      add(timeUs, KELVO_WRITE_ACTION,
          hostkit::AlarmAction(camera, video, number, begins, utcMs / 1000,
                               static_cast<int>(utcMs % 1000)));
    };
    send(span.beginUs, true, scenario.preAlarmSeconds * 1'000'000LL);
    send(span.EndUs(), false, 0);
  };

  for (const auto& camera : cameras) {
    int number = 0;
    for (const auto& span : scenario.alarms) {
      ++number;
      addAlarm(camera, true, number, span);
      if (camera.audio) addAlarm(camera, false, number, span);
    }
    for (const auto& span : scenario.ptz) {
      add(span.beginUs, KELVO_WRITE_PTZ, hostkit::PtzMessage(camera, kPtzMove));
      add(span.EndUs(), KELVO_WRITE_PTZ, hostkit::PtzMessage(camera, kPtzStop));
    }
  }
  std::stable_sort(messages.begin(), messages.end(),
                   [](const auto& a, const auto& b) { return a.timeUs < b.timeUs; });
  return messages;
}

}  // namespace nvrhost
