#include "record/DeviceConfig.h"
#include "record/DeviceReader.h"

namespace qvsvr::kelvo {

void PtzInputs::Apply(std::uint32_t inputKey, int opcode) {
  switch (opcode) {
    case 17:
    case 18:
      PtzGroupC.insert(inputKey);
      break;
    case 31:
      PtzGroupC.erase(inputKey);
      break;
    case 33:
    case 34:
      PtzGroupA.insert(inputKey);
      break;
    case 32:
      PtzGroupA.erase(inputKey);
      break;
    case 52:
    case 53:
      PtzGroupB.insert(inputKey);
      break;
    case 54:
      PtzGroupB.erase(inputKey);
      break;
    default:
      break;
  }
}

bool PtzInputs::IsMoving(std::uint32_t inputKey) const {
  return PtzGroupA.count(inputKey) != 0 || PtzGroupB.count(inputKey) != 0 ||
         PtzGroupC.count(inputKey) != 0;
}

namespace {

void ApplyDevicePtz(PtzInputs& ptz, const DeviceAddress& address, const TiXmlElement& device) {
  for (const TiXmlElement& video : Children(device, "Video")) {
    for (const TiXmlElement& input : Children(video, "Input")) {
      std::int32_t number = 0, opcode = 0;
      if (ReadInt(input, "Number", number) && IsInput(number) && ReadInt(input, "Opcode", opcode)) {
        ptz.Apply(address.With(static_cast<std::uint32_t>(number)), opcode);
      }
    }
  }
}

}  // namespace

void ApplyPtz(const ConfigTarget& target, const TiXmlElement& root) {
  if (root.FirstChildElement("PTZ") == nullptr) return;
  ++target.Services.Stats.eptz;
  for (const TiXmlElement& message : Children(root, "PTZ")) {
    for (const TiXmlElement& devices : Children(message, "Devices")) {
      std::int32_t id = 0;
      if (!ReadInt(devices, "ID", id)) continue;
      for (const TiXmlElement& device : Children(devices, "Device")) {
        std::int32_t number = 0;
        if (!ReadInt(device, "Number", number)) continue;
        ApplyDevicePtz(target.Ptz, {static_cast<std::uint32_t>(id), number, 0}, device);
      }
    }
  }
}

}  // namespace qvsvr::kelvo
