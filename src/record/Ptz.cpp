#include <algorithm>
#include <iterator>

#include "host/DeviceNest.h"
#include "media/StreamId.h"
#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"

namespace qvsvr::kelvo {

namespace {

constexpr std::uint8_t kGroupA = 1, kGroupB = 2, kGroupC = 4;

struct Opcode {
  int number;
  bool begins;
  std::uint8_t group;
};
constexpr Opcode kOpcodes[] = {
    {17, true, kGroupC}, {18, true, kGroupC}, {31, false, kGroupC},
    {33, true, kGroupA}, {34, true, kGroupA}, {32, false, kGroupA},
    {52, true, kGroupB}, {53, true, kGroupB}, {54, false, kGroupB},
};

}  // namespace

void PtzInputs::Apply(std::uint32_t inputKey, int opcode) {
  const auto* known = std::ranges::find(kOpcodes, opcode, &Opcode::number);
  if (known == std::end(kOpcodes)) return;
  if (known->begins) {
    Moving[inputKey] |= known->group;
    return;
  }
  const auto entry = Moving.find(inputKey);
  if (entry == Moving.end()) return;
  entry->second &= static_cast<std::uint8_t>(~known->group);
  if (entry->second == 0) Moving.erase(entry);
}

void PtzInputs::Keep(std::uint32_t id, const std::set<std::uint32_t>& configured) {
  std::erase_if(Moving, [&](const auto& entry) {
    return qv::kelvo::ProviderOf(entry.first) == qv::kelvo::ProviderOf(id) &&
           !configured.contains(entry.first);
  });
}

void ApplyPtz(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("PTZ") == nullptr) return;
  ++target.Services.Stats.eptz;
  for (const TiXmlElement& message : Children(root, "PTZ")) {
    ForEachDevice(message, [&](std::uint32_t id, std::int32_t number, const TiXmlElement& device) {
      ForEachInput(device, "Video", [&](std::int32_t input, const TiXmlElement& element) {
        std::int32_t opcode = 0;
        if (!IsInput(input) || !ReadInt(element, "Opcode", opcode)) return;
        const DeviceAddress address{id, number, 0};
        target.Ptz.Apply(address.With(static_cast<std::uint32_t>(input)), opcode);
      });
    });
  }
}

}  // namespace qvsvr::kelvo
