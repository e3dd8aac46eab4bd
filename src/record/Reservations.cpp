#include "record/Reservations.h"

#include <algorithm>

namespace qvsvr::kelvo {

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

}  // namespace qvsvr::kelvo
