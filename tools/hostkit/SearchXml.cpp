#include "hostkit/SearchXml.h"

#include <tinyxml.h>

#include <stdexcept>

namespace hostkit {
namespace {

TiXmlElement& Add(TiXmlElement& parent, const char* name) {
  return *parent.InsertEndChild(TiXmlElement(name))->ToElement();
}

TiXmlElement& FindOrAdd(TiXmlElement& parent, const char* name) {
  auto* const found = parent.FirstChildElement(name);
  return found != nullptr ? *found : Add(parent, name);
}

int Number(const TiXmlElement& element, const char* name, int missing) {
  int value = missing;
  element.QueryIntAttribute(name, &value);
  return value;
}

TiXmlElement& FindOrAdd(TiXmlElement& parent, const char* name, const char* attribute, int value) {
  for (auto* child = parent.FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    if (Number(*child, attribute, -1) == value) return *child;
  }
  auto& child = Add(parent, name);
  child.SetAttribute(attribute, value);
  return child;
}

void AddInput(TiXmlElement& root, const SearchInput& input) {
  auto& devices = FindOrAdd(root, "Devices", "ID", static_cast<int>(input.provider));
  auto& device = FindOrAdd(devices, "Device", "Number", input.device);
  auto& context =
      input.context == 0 ? device : FindOrAdd(device, "Context", "Number", input.context);
  // Audio is asked for at the device and counts for each of its contexts.
  auto& medium = input.audio ? FindOrAdd(device, "Audio") : FindOrAdd(context, "Video");
  auto& element = FindOrAdd(medium, "Input", "Number", input.number);
  for (const auto moment : input.moments) {
    Add(element, "Request").SetAttribute("Frame", std::to_string(moment));
  }
}

SearchResult ParseResult(const TiXmlElement& element, const SearchInput& input) {
  SearchResult result;
  result.input = input;
  result.start = Number(element, "Start", 0);
  result.end = Number(element, "End", 0);
  result.count = Number(element, "Count", 0);
  result.flags = static_cast<unsigned>(Number(element, "Flags", 0));
  result.standard = Number(element, "Standard", 0);
  result.streamId = static_cast<std::uint32_t>(Number(element, "StreamID", 0));
  result.width = Number(element, "Width", 0);
  result.height = Number(element, "Height", 0);
  result.sampleRate = Number(element, "SampleRate", 0);
  result.bufSizeSamples = Number(element, "BufSizeSamples", -1);
  return result;
}

// The results below a Device or a Context.
void ParseMedia(const TiXmlElement& parent, SearchInput input, std::vector<SearchResult>& rows) {
  for (const char* const name : {"Video", "Audio"}) {
    input.audio = name[0] == 'A';
    const auto* const medium = parent.FirstChildElement(name);
    if (medium == nullptr) continue;
    for (const auto* element = medium->FirstChildElement("Input"); element != nullptr;
         element = element->NextSiblingElement("Input")) {
      input.number = Number(*element, "Number", 0);
      for (const auto* row = element->FirstChildElement("Result"); row != nullptr;
           row = row->NextSiblingElement("Result")) {
        rows.push_back(ParseResult(*row, input));
      }
    }
  }
}

}  // namespace

std::string RequestXml(const SearchRequest& request) {
  TiXmlElement root("qDVR");
  root.SetAttribute("Type", request.type);
  root.SetAttribute("Start", std::to_string(request.start));
  root.SetAttribute("End", std::to_string(request.end));
  if (request.resolution != 0) root.SetAttribute("Resolution", request.resolution);
  if (!request.local) Add(Add(root, "Targets"), "Local").SetAttribute("Search", 0);
  for (const auto& input : request.inputs) AddInput(root, input);
  TiXmlPrinter printer;
  printer.SetStreamPrinting();
  root.Accept(&printer);
  return printer.Str();
}

SearchResults ParseResults(const std::string& xml) {
  TiXmlDocument document;
  document.Parse(xml.c_str(), nullptr, TIXML_ENCODING_UTF8);
  const auto* const root = document.RootElement();
  if (document.Error() || root == nullptr || root->ValueStr() != "qDVR") {
    throw std::runtime_error("not a result document: " + xml);
  }
  SearchResults results;
  results.type = Number(*root, "Type", -1);
  results.thumbnail = Number(*root, "Thumbnail", -1);
  SearchInput input;
  for (const auto* devices = root->FirstChildElement("Devices"); devices != nullptr;
       devices = devices->NextSiblingElement("Devices")) {
    input.provider = static_cast<std::uint32_t>(Number(*devices, "ID", 0));
    for (const auto* device = devices->FirstChildElement("Device"); device != nullptr;
         device = device->NextSiblingElement("Device")) {
      input.device = Number(*device, "Number", 0);
      input.context = 0;
      ParseMedia(*device, input, results.rows);
      for (const auto* context = device->FirstChildElement("Context"); context != nullptr;
           context = context->NextSiblingElement("Context")) {
        input.context = Number(*context, "Number", 0);
        ParseMedia(*context, input, results.rows);
      }
    }
  }
  return results;
}

}  // namespace hostkit
