#include "record/DeviceReader.h"

#include <algorithm>

#include "host/DeviceNest.h"
#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

constexpr int kSequenceTable = 256;  // positions

void ReadExpirations(const TiXmlElement& schedule, std::int32_t input, DeviceInputs& inputs) {
  for (const TiXmlElement& element : Children(schedule, "Expiration")) {
    InputExpiration expiration{input, 0, 0};
    if (!ReadInt(element, "Type", expiration.Type) || expiration.Type == 0) continue;
    inputs.HasOwnStream.set(static_cast<std::size_t>(input));
    if (ReadInt(element, "Days", expiration.Days)) inputs.Expirations.push_back(expiration);
  }
}

void ReadVideoInput(const TiXmlElement& element, std::int32_t number, DeviceInputs& inputs) {
  InputSettings& settings = inputs.Video[static_cast<std::size_t>(number)];
  settings.Told = true;
  settings.Name = ReadText(element, "Name");
  for (const TiXmlElement& motion : Children(element, "Motion")) {
    (void)ReadInt(motion, "BeginThreshold", settings.BeginThreshold);  // absent counts as 0
    (void)ReadInt(motion, "PreMotion", settings.PreMotion);
    (void)ReadInt(motion, "PostMotion", settings.PostMotion);
  }
  for (const TiXmlElement& schedule : Children(element, "Schedule")) {
    ReadSchedule(schedule, "Record", settings.Schedule);
    ReadExpirations(schedule, number, inputs);
  }
}

}  // namespace

bool ReadVideoInputs(const TiXmlElement& element, DeviceInputs& inputs) {
  ForEachInput(element, "Video", [&](std::int32_t number, const TiXmlElement& input) {
    if (!IsInput(number)) {
      LogPrintf(LogWarning, "invalid video input number %d", number);
      return;
    }
    ReadVideoInput(input, number, inputs);
    ++inputs.VideoCount;
  });
  bool any = false;
  for (const TiXmlElement& video : Children(element, "Video")) any = any || !video.NoChildren();
  return any;
}

void ReadAudioInputs(const TiXmlElement& element, DeviceInputs& inputs) {
  ForEachInput(element, "Audio", [&](std::int32_t number, const TiXmlElement& input) {
    if (!IsInput(number)) {
      LogPrintf(LogWarning, "invalid audio input number %d", number);
      return;
    }
    InputSettings& settings = inputs.Audio[static_cast<std::size_t>(number)];
    settings.Told = true;
    settings.Name = ReadText(input, "Name");
    for (const TiXmlElement& schedule : Children(input, "Schedule")) {
      ReadSchedule(schedule, "Record", settings.Schedule);
    }
  });
}

std::vector<std::int32_t> ReadSequence(const TiXmlElement& sequence) {
  std::array<std::int32_t, kSequenceTable> table;
  table.fill(-1);
  for (const TiXmlElement& entry : Children(sequence, "Entry")) {
    std::int32_t position = 0, input = 0, page = 0;
    if (ReadInt(entry, "Position", position) && ReadInt(entry, "Input", input) &&
        ReadInt(entry, "Page", page) && position >= 0 && position < kSequenceTable) {
      table[static_cast<std::size_t>(position)] = input;
    }
  }

  std::vector<std::int32_t> shown;
  std::int32_t count = 0;
  if (!ReadInt(sequence, "Count", count)) return shown;
  const auto used = static_cast<std::size_t>(std::clamp(count, 0, kSequenceTable));
  std::copy_if(table.begin(), table.begin() + static_cast<std::ptrdiff_t>(used),
               std::back_inserter(shown), [](std::int32_t input) { return input >= 0; });
  return shown;
}

bool IsContext(std::int32_t number, const TiXmlElement& element) {
  if (element.ValueStr() != "Context" || (number >= 1 && number <= 15)) return true;
  LogPrintf(LogWarning, "invalid context number %d", number);
  return false;
}

}  // namespace qvsvr::kelvo
