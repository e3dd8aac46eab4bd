#include "hostkit/StorageXml.h"

#include <tinyxml.h>

#include <cstdlib>

#include "kelvo/host_abi.h"

namespace hostkit {
namespace {

constexpr int kReserve = 4, kGiveUp = 3;

TiXmlElement& Add(TiXmlElement& parent, const char* name) {
  return *parent.InsertEndChild(TiXmlElement(name))->ToElement();
}

TiXmlElement& AddStorage(TiXmlElement& root) {
  auto& storage = Add(root, "Storage");
  storage.SetAttribute("ID", static_cast<int>(KELVO_MODULE_ID));
  return storage;
}

std::string Print(const TiXmlNode& node) {
  TiXmlPrinter printer;
  printer.SetStreamPrinting();
  node.Accept(&printer);
  return printer.Str();
}

void AddBookmark(TiXmlElement& cases, const Bookmark& from) {
  auto* last = cases.LastChild() == nullptr ? nullptr : cases.LastChild()->ToElement();
  if (last == nullptr || from.caseId != last->Attribute("ID")) {
    last = &Add(cases, "Case");
    last->SetAttribute("ID", from.caseId);
  }
  auto& bookmark = Add(*last, "Bookmark");
  bookmark.SetAttribute("ID", from.id);
  bookmark.SetAttribute("Start", std::to_string(from.start));
  bookmark.SetAttribute("End", std::to_string(from.end));
  for (const auto& camera : from.cameras) {
    auto& devices = Add(bookmark, "Devices");
    devices.SetAttribute("ID", static_cast<int>(camera.provider));
    auto* device = &Add(devices, "Device");
    device->SetAttribute("Number", camera.device);
    if (camera.context != 0) {
      device = &Add(*device, "Context");
      device->SetAttribute("Number", camera.context);
    }
    Add(*device, "Video");
  }
}

std::string Reservation(const std::string& guid, int command, int gigabytes) {
  TiXmlElement root("qDVR");
  auto& reservation = Add(AddStorage(root), "Reservation");
  reservation.SetAttribute("GUID", guid);
  reservation.SetAttribute("Command", command);
  if (gigabytes > 0) reservation.SetAttribute("ReserveGB", gigabytes);
  return Print(root);
}

}  // namespace

bool StorageSettings::Empty() const {
  return !timeLapseMs && !contentAgeSeconds && !cleanupRemoves && !expirationDays && drives.empty();
}

std::string StorageDelta(const StorageSettings& settings) {
  TiXmlElement root("qDVR");
  root.SetAttribute("Delta", 1);
  auto& storage = AddStorage(root);
  if (settings.timeLapseMs) storage.SetAttribute("TimeLapse", *settings.timeLapseMs);
  if (settings.contentAgeSeconds) storage.SetAttribute("ContentAge", *settings.contentAgeSeconds);
  if (settings.cleanupRemoves) {
    storage.SetAttribute("FSCleanupRemoves", *settings.cleanupRemoves ? 1 : 0);
  }
  if (settings.expirationDays) {
    const int days = *settings.expirationDays;
    auto& expiration = Add(storage, "Expiration");
    expiration.SetAttribute("Type", days == 0 ? 0 : days > 0 ? 1 : 2);
    expiration.SetAttribute("Days", std::abs(days));
  }
  for (const auto& drive : settings.drives) {
    auto& element = Add(storage, "Drive");
    element.SetAttribute("Name", drive.name);
    if (drive.enabled) element.SetAttribute("Enabled", *drive.enabled ? 1 : 0);
    if (drive.percent) element.SetAttribute("Percent", *drive.percent);
  }
  return Print(root);
}

std::string WithBookmarks(const std::string& configuration,
                          const std::vector<Bookmark>& bookmarks) {
  TiXmlDocument document;
  document.Parse(configuration.c_str(), nullptr, TIXML_ENCODING_UTF8);
  auto& cases = Add(*document.RootElement(), "Cases");
  cases.SetAttribute("ID", static_cast<int>(KELVO_MODULE_CASES));
  for (const auto& bookmark : bookmarks) AddBookmark(cases, bookmark);
  return Print(document);
}

std::string ReserveAction(const std::string& guid, int gigabytes) {
  return Reservation(guid, kReserve, gigabytes);
}

std::string GiveUpAction(const std::string& guid) {
  return Reservation(guid, kGiveUp, 0);
}

}  // namespace hostkit
