#include "record/Reservations.h"

#include <algorithm>

#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "record/RecordServices.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

// Values of Command.
constexpr int kAdd = 4;
constexpr int kDelete = 3;
constexpr int kDeleteToo = 5;
constexpr char kTemporary[] = "edgestortmp";  // where the client may put unfinished files

void SendReservationResponse(const RecordServices& services, const ReservationEntry& entry) {
  LogPrintf(LogInfo, "Sending reservation response GUID - %s - ReserveGB - %d", entry.Guid.c_str(),
            entry.ReserveGB);
  TiXmlElement reservation("Reservation");
  reservation.SetAttribute("GUID", entry.Guid);
  reservation.SetAttribute("ReserveGB", entry.ReserveGB);
  if (!entry.OutDir.empty()) {
    reservation.SetAttribute("OutDir", entry.OutDir);
    reservation.SetAttribute("TmpDir", entry.OutDir + kTemporary);
  }
  TiXmlDocument document;
  TiXmlElement storage("Storage");
  storage.SetAttribute("ID", static_cast<int>(KELVO_MODULE_ID));
  storage.InsertEndChild(reservation);
  BeginXml(document)->InsertEndChild(storage);
  services.Core.SendXmlEvent(PrintXml(document), KELVO_CLASS_EVENT);
}

// A known GUID isn't answered again. The worker waits for the room that is asked for, for the
// client asks only once.
void AddReservation(const RecordServices& services, const TiXmlElement& element,
                    const std::string& guid) {
  ReservationEntry entry{guid, {}, 0};
  if (!ReadInt(element, "ReserveGB", entry.ReserveGB) || entry.ReserveGB <= 0 ||
      services.Reservations.HasReservation(guid)) {
    return;
  }
  entry.OutDir = services.FileSystem.GetVolumeToReserve(&services.Manager, entry.ReserveGB);
  // A size of 0 tells the client that there is no such room.
  if (entry.OutDir.empty()) entry.ReserveGB = 0;
  SendReservationResponse(services, entry);
  if (services.Reservations.AddReservation(entry)) {
    LogPrintf(LogInfo, "Added reservation GUID %s for %d GB", guid.c_str(), entry.ReserveGB);
  }
}

void ApplyReservation(const RecordServices& services, const TiXmlElement& element) {
  const std::string guid = ReadText(element, "GUID");
  int command = 0;
  if (guid.empty() || !ReadInt(element, "Command", command)) return;
  if (command == kAdd) {
    AddReservation(services, element, guid);
  } else if (command == kDelete || command == kDeleteToo) {
    services.Reservations.RemoveReservation(guid);
    LogPrintf(LogInfo, "Deleted reservation GUID %s", guid.c_str());
  }
}

}  // namespace

bool ReservationList::AddReservation(const ReservationEntry& entry) {
  if (entry.Guid.empty() || entry.OutDir.empty() || entry.ReserveGB <= 0) return false;
  if (HasReservation(entry.Guid)) return false;
  Entries.push_back(entry);
  SumByVolume[entry.OutDir] += entry.ReserveGB;
  return true;
}

void ReservationList::RemoveReservation(std::string_view guid) {
  const auto found = std::ranges::find(Entries, guid, &ReservationEntry::Guid);
  if (found == Entries.end()) return;
  const auto sum = SumByVolume.find(found->OutDir);
  sum->second -= found->ReserveGB;
  if (sum->second < 1) SumByVolume.erase(sum);
  Entries.erase(found);
}

bool ReservationList::HasReservation(std::string_view guid) const {
  return std::ranges::find(Entries, guid, &ReservationEntry::Guid) != Entries.end();
}

std::int64_t ReservationList::ReservedGB(const std::string& volume) const {
  const auto sum = SumByVolume.find(volume);
  return sum == SumByVolume.end() ? 0 : sum->second;
}

void ApplyReservations(const RecordServices& services, const TiXmlElement& root) {
  for (const TiXmlElement& storage : Children(root, "Storage")) {
    if (!HasModuleId(storage, KELVO_MODULE_ID)) continue;
    for (const TiXmlElement& reservation : Children(storage, "Reservation")) {
      ApplyReservation(services, reservation);
    }
  }
}

}  // namespace qvsvr::kelvo
