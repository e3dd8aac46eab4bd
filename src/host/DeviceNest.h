#pragma once

#include <cstdint>

#include "host/Xml.h"

namespace qvsvr::kelvo {

// The nest in which messages name cameras: Devices (ID) > Device (Number) > Context (Number) >
// Video or Audio > Input (Number). Each of these visits one of its levels, in order; elements whose
// number can't be read are left out.

// `visit(id, devices)` for the Devices children.
template <class Visit>
void ForEachProvider(const TiXmlElement& parent, Visit visit) {
  for (const TiXmlElement& devices : Children(parent, "Devices")) {
    std::int32_t number = 0;
    std::uint32_t id = 0;
    if (ReadInt(devices, "ID", number)) {
      visit(static_cast<std::uint32_t>(number), devices);
    } else if (ExtractUnsigned(devices, "ID", id)) {
      visit(id, devices);
    }
  }
}

// `visit(number, child)` for the children of that name that have a Number.
template <class Visit>
void ForEachNumbered(const TiXmlElement& parent, const char* name, Visit visit) {
  for (const TiXmlElement& child : Children(parent, name)) {
    if (std::int32_t number = 0; ReadInt(child, "Number", number)) visit(number, child);
  }
}

// `visit(id, number, device)` for the devices of all providers.
template <class Visit>
void ForEachDevice(const TiXmlElement& parent, Visit visit) {
  ForEachProvider(parent, [&](std::uint32_t id, const TiXmlElement& devices) {
    ForEachNumbered(devices, "Device", [&](std::int32_t number, const TiXmlElement& device) {
      visit(id, number, device);
    });
  });
}

// `visit(context, element)` for a Device element, as context 0, and then its Context children.
template <class Visit>
void ForEachContext(const TiXmlElement& device, Visit visit) {
  visit(0, device);
  ForEachNumbered(device, "Context", visit);
}

// `visit(number, input)` for the inputs of all children of that kind, which is "Video" or "Audio".
template <class Visit>
void ForEachInput(const TiXmlElement& element, const char* kind, Visit visit) {
  for (const TiXmlElement& group : Children(element, kind)) ForEachNumbered(group, "Input", visit);
}

}  // namespace qvsvr::kelvo
