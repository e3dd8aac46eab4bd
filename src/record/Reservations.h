#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/Xml.h"

namespace qvsvr::kelvo {

struct RecordServices;

// A share of a volume that is spoken for: by another module of the host, under a GUID of its own,
// or by a recording that is being written, under its path.
struct ReservationEntry {
  std::string Guid;    // a client's GUID, or the path of a record file
  std::string OutDir;  // the volume
  std::int32_t ReserveGB = 0;
};

// Gigabytes set aside on volumes. What is reserved counts as used when a volume is chosen, which
// keeps streams that open their files together from all counting on the same room; and a recording
// with a reservation is being written, so that room is never made of it. Lives in memory only:
// after a start clients ask again. Owned by CRecordMgr; worker thread only.
class ReservationList {
 public:
  // False, with nothing added, for an empty Guid or OutDir, a size below 1 or a known Guid.
  bool AddReservation(const ReservationEntry& entry);
  // Does nothing for an empty or unknown key.
  void RemoveReservation(std::string_view guid);
  [[nodiscard]] bool HasReservation(std::string_view guid) const;
  // 0 for a volume without any.
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
