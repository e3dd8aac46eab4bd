#include "nvrhost/Multiplex.h"

#include <tinyxml.h>

#include <string_view>

namespace nvrhost {
namespace {

// Sets the channel number of every input and channel below an element.
void SetChannel(TiXmlElement& element, int channel) {
  for (auto* child = element.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    const std::string_view name = child->Value();
    if (name == "Input" || name == "Channel" || name == "AudioChannel") {
      child->SetAttribute("Number", channel);
    }
    if (name != "Input") SetChannel(*child, channel);
  }
}

// Adds the children of `from`: inputs and channels side by side, the elements around them once.
void Merge(TiXmlElement& into, const TiXmlElement& from) {
  for (const auto* child = from.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    const std::string_view name = child->Value();
    auto* const present = into.FirstChildElement(child->Value());
    const bool shared = name == "Video" || name == "Audio" || name == "Codec" || name == "Encoder";
    if (present != nullptr && shared) {
      Merge(*present, *child);
    } else {
      into.InsertEndChild(*child);
    }
  }
}

void MultiplexDevices(TiXmlElement& devices, int channelsPerDevice) {
  TiXmlElement* shared = nullptr;
  int sharedNumber = -1;
  for (auto* device = devices.FirstChildElement("Device"); device != nullptr;) {
    auto* const next = device->NextSiblingElement("Device");
    int camera = 0;
    device->QueryIntAttribute("Number", &camera);
    SetChannel(*device, camera % channelsPerDevice);
    if (shared != nullptr && camera / channelsPerDevice == sharedNumber) {
      Merge(*shared, *device);
      devices.RemoveChild(device);
    } else {
      shared = device;
      sharedNumber = camera / channelsPerDevice;
      device->SetAttribute("Number", sharedNumber);
    }
    device = next;
  }
}

void MultiplexAllDevices(TiXmlElement& element, int channelsPerDevice) {
  for (auto* child = element.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    if (std::string_view(child->Value()) == "Devices") {
      MultiplexDevices(*child, channelsPerDevice);
    } else {
      MultiplexAllDevices(*child, channelsPerDevice);
    }
  }
}

}  // namespace

std::string Multiplex(const std::string& xml, int channelsPerDevice) {
  if (channelsPerDevice <= 1) return xml;
  TiXmlDocument document;
  document.Parse(xml.c_str(), nullptr, TIXML_ENCODING_UTF8);
  if (document.RootElement() == nullptr) return xml;
  MultiplexAllDevices(*document.RootElement(), channelsPerDevice);
  TiXmlPrinter printer;
  printer.SetStreamPrinting();
  document.Accept(&printer);
  return printer.Str();
}

std::uint32_t MultiplexProvider(std::uint32_t provider, int channelsPerDevice) {
  if (channelsPerDevice <= 1) return provider;
  const auto channels = static_cast<std::uint32_t>(channelsPerDevice);
  const std::uint32_t camera = (provider >> 8) & 0xFF;
  return (provider & ~0xFF00u) | camera / channels << 8 | camera % channels;
}

}  // namespace nvrhost
