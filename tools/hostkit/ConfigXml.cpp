#include "hostkit/ConfigXml.h"

#include <tinyxml.h>

#include "kelvo/host_abi.h"

namespace hostkit {
namespace {

constexpr std::uint32_t kProviderMask = 0x0FFF0000;
constexpr std::uint32_t kFirstAudioChannel = 16;

std::uint32_t ProviderId(const CameraConfig& camera, std::uint32_t channel) {
  const auto device = static_cast<std::uint32_t>(camera.device) & 0xFF;
  const auto context = static_cast<std::uint32_t>(camera.context) & 0x0F;
  return context << 28 | (camera.provider & kProviderMask) | device << 8 | channel;
}

TiXmlElement& Add(TiXmlElement& parent, const char* name) {
  return *parent.InsertEndChild(TiXmlElement(name))->ToElement();
}

// The child of this name whose attribute has this value, made if there is none yet.
TiXmlElement& FindOrAdd(TiXmlElement& parent, const char* name, const char* attribute, int value) {
  for (auto* child = parent.FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    int found = 0;
    if (child->QueryIntAttribute(attribute, &found) == TIXML_SUCCESS && found == value) {
      return *child;
    }
  }
  auto& child = Add(parent, name);
  child.SetAttribute(attribute, value);
  return child;
}

// The element that holds a camera's Video and Audio, below `parent`: its Device, or the Context in
// it.
TiXmlElement& CameraElement(TiXmlElement& parent, const CameraConfig& camera) {
  auto& devices = FindOrAdd(parent, "Devices", "ID", static_cast<int>(camera.provider));
  auto& device = FindOrAdd(devices, "Device", "Number", camera.device);
  return camera.context == 0 ? device : FindOrAdd(device, "Context", "Number", camera.context);
}

TiXmlElement& AddInput(TiXmlElement& camera, const char* medium) {
  auto& input = Add(Add(camera, medium), "Input");
  input.SetAttribute("Number", 0);
  return input;
}

TiXmlElement& AddSchedule(TiXmlElement& input, const CameraConfig& camera) {
  auto& schedule = Add(input, "Schedule");
  for (const auto& row : camera.schedule) {
    auto& entry = Add(schedule, "Entry");
    entry.SetAttribute("FirstHour", row.firstHour);
    entry.SetAttribute("LastHour", row.lastHour);
    entry.SetAttribute("Record", row.record);
  }
  return schedule;
}

void AddVideo(TiXmlElement& parent, const CameraConfig& camera) {
  auto& input = AddInput(parent, "Video");
  input.SetAttribute("Name", camera.name);
  auto& motion = Add(input, "Motion");
  motion.SetAttribute("PreMotion", camera.preMotionMs);
  motion.SetAttribute("PostMotion", camera.postMotionMs);
  auto& schedule = AddSchedule(input, camera);
  if (camera.expirationType != 0) {
    auto& expiration = Add(schedule, "Expiration");
    expiration.SetAttribute("Type", camera.expirationType);
    expiration.SetAttribute("Days", camera.expirationDays);
  }
}

void AddAudio(TiXmlElement& parent, const CameraConfig& camera) {
  auto& input = AddInput(parent, "Audio");
  input.SetAttribute("Name", camera.name);
  AddSchedule(input, camera);
}

void AddCodec(TiXmlElement& parent, const CameraConfig& camera) {
  auto& encoder = Add(Add(parent, "Codec"), "Encoder");
  encoder.SetAttribute("Number", 0);
  encoder.SetAttribute("Running", camera.running ? 1 : 0);
  auto& channel = Add(encoder, "Channel");
  channel.SetAttribute("Number", 0);
  channel.SetAttribute("Standard", camera.standard);
  channel.SetAttribute("Width", camera.width);
  channel.SetAttribute("Height", camera.height);
  if (camera.audio) {
    auto& audio = Add(encoder, "AudioChannel");
    audio.SetAttribute("Number", 0);
    audio.SetAttribute("Standard", camera.audioStandard);
    audio.SetAttribute("SampleRate", camera.sampleRate);
    audio.SetAttribute("BufSizeSamples", camera.bufSizeSamples);
  }
}

void AddEvents(TiXmlElement& root, const std::vector<CameraConfig>& cameras, int preAlarmSeconds) {
  auto& events = Add(root, "Events");
  events.SetAttribute("ID", static_cast<int>(KELVO_MODULE_EVENTS));
  auto& event = Add(events, "Event");
  event.SetAttribute("PreAlarm", preAlarmSeconds);
  auto& action = Add(event, "Action");
  for (const auto& camera : cameras) {
    auto& element = CameraElement(action, camera);
    AddInput(element, "Video");
    if (camera.audio) {
      AddInput(element, "Audio");
    }
  }
}

std::string Print(const TiXmlElement& root) {
  TiXmlDocument document;
  document.InsertEndChild(TiXmlDeclaration("", "", ""));
  document.InsertEndChild(root);
  TiXmlPrinter printer;
  printer.SetIndent("");
  printer.SetLineBreak("");
  document.Accept(&printer);
  return printer.Str();
}

}  // namespace

std::uint32_t VideoProvider(const CameraConfig& camera) {
  return ProviderId(camera, 0);
}

std::uint32_t AudioProvider(const CameraConfig& camera) {
  return ProviderId(camera, kFirstAudioChannel);
}

std::string FullConfiguration(const std::vector<CameraConfig>& cameras, int preAlarmSeconds) {
  TiXmlElement root("qDVR");
  root.SetAttribute("Delta", 0);
  for (const auto& camera : cameras) {
    auto& element = CameraElement(root, camera);
    AddVideo(element, camera);
    if (camera.audio) {
      AddAudio(element, camera);
    }
    AddCodec(element, camera);
  }
  if (preAlarmSeconds > 0) {
    AddEvents(root, cameras, preAlarmSeconds);
  }
  return Print(root);
}

std::string AlarmAction(const CameraConfig& camera, bool video, int action, bool record,
                        std::int64_t seconds, int milliseconds) {
  TiXmlElement root("qDVR");
  auto& input = AddInput(CameraElement(root, camera), video ? "Video" : "Audio");
  input.SetAttribute("Time", std::to_string(seconds));
  input.SetAttribute("Milliseconds", milliseconds);
  input.SetAttribute("Action", action);
  input.SetAttribute("Record", record ? 1 : 0);
  return Print(root);
}

std::string PtzMessage(const CameraConfig& camera, int opcode) {
  TiXmlElement root("qDVR");
  auto& ptz = Add(root, "PTZ");
  auto& devices = FindOrAdd(ptz, "Devices", "ID", static_cast<int>(camera.provider));
  auto& device = FindOrAdd(devices, "Device", "Number", camera.device);
  AddInput(device, "Video").SetAttribute("Opcode", opcode);
  return Print(root);
}

std::string TimeLapseDelta(int milliseconds) {
  TiXmlElement root("qDVR");
  root.SetAttribute("Delta", 1);
  auto& storage = Add(root, "Storage");
  storage.SetAttribute("ID", static_cast<int>(KELVO_MODULE_ID));
  storage.SetAttribute("TimeLapse", milliseconds);
  return Print(root);
}

}  // namespace hostkit
