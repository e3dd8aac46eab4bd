#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/Xml.h"

namespace qvsvr::kelvo {

struct RecordServices;

struct ReservationEntry {
  std::string Guid;    // a client's GUID, or the path of a record file
  std::string OutDir;  // the volume
  std::int32_t ReserveGB = 0;
};

// Gigabytes set aside on volumes. Lives in memory only. Worker thread only.
class ReservationList {
 public:
  // False, with nothing added, for an empty Guid or OutDir, a size below 1 or a known Guid.
  bool AddReservation(const ReservationEntry& entry);
  // Does nothing for an empty or unknown key.
  void RemoveReservation(std::string_view guid);
  [[nodiscard]] bool HasReservation(std::string_view guid) const;
  [[nodiscard]] std::int64_t ReservedGB(const std::string& volume) const;

 private:
  std::vector<ReservationEntry> Entries;  // in order of adding
  std::map<std::string, std::int64_t> SumByVolume;
};

// Applies the Reservation children of each Storage element of an action message that carries this
// module's id: other modules of the host ask for space on a volume and give it up again. The answer
// to a request goes out as an event. Worker thread only.
void ApplyReservations(const RecordServices& services, const TiXmlElement& root);

}  // namespace qvsvr::kelvo
