#include <algorithm>

#include "host/DeviceNest.h"
#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int32_t kEventsId = 0x000A0000;

// Keeps `seconds` for each input that the Devices of an action name.
void LinkAction(PreAlarmTable& table, const TiXmlElement& action, std::int32_t seconds) {
  ForEachDevice(action, [&](std::uint32_t id, std::int32_t device, const TiXmlElement& found) {
    ForEachContext(found, [&](std::int32_t context, const TiXmlElement& element) {
      if (!IsContext(context, element)) return;
      const DeviceAddress address{id, device, context};
      const auto link = [&](const char* kind, std::uint32_t offset) {
        ForEachInput(element, kind, [&](std::int32_t input, const TiXmlElement&) {
          if (!IsInput(input)) return;
          std::int32_t& stored = table[address.With(static_cast<std::uint32_t>(input) + offset)];
          stored = std::max(stored, seconds);
        });
      };
      link("Video", 0);
      link("Audio", kAudioKey);
    });
  });
}

std::int32_t PreAlarmOf(const PreAlarmTable& table, const RecordStream& stream, int slotIndex) {
  if (stream.Slots[static_cast<std::size_t>(slotIndex)].Encoder < 0) return 0;
  const int input = stream.EffectiveInput(slotIndex);
  if (!IsInput(input)) return 0;
  const std::uint32_t offset = slotIndex < kVideoSlots ? 0 : kAudioKey;
  const auto found =
      table.find((stream.StreamId & ~0xFFu) | (static_cast<std::uint32_t>(input) + offset));
  return found != table.end() ? found->second : 0;
}

}  // namespace

void ApplyEvents(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("Events") == nullptr) return;
  ++target.Services.Stats.ievt;
  bool any = false;
  for (const TiXmlElement& events : Children(root, "Events")) {
    std::int32_t id = 0;
    if (!ReadInt(events, "ID", id) || id != kEventsId) continue;
    any = true;
    target.PreAlarmSeconds.clear();
    for (const TiXmlElement& event : Children(events, "Event")) {
      std::int32_t seconds = 0;
      if (!ReadInt(event, "PreAlarm", seconds)) continue;
      for (const TiXmlElement& action : Children(event, "Action")) {
        LinkAction(target.PreAlarmSeconds, action, seconds);
      }
    }
  }
  if (!any) return;
  std::int32_t longest = 0;
  for (const auto& [input, seconds] : target.PreAlarmSeconds) longest = std::max(longest, seconds);
  target.Services.FileSystem.SetLongestPreAlarm(longest);
  for (const auto& stream : target.Streams.All()) {
    for (int slot = 0; slot < kSlots; ++slot) {
      stream->Slots[static_cast<std::size_t>(slot)].PreAlarm =
          PreAlarmOf(target.PreAlarmSeconds, *stream, slot);
    }
  }
}

}  // namespace qvsvr::kelvo
