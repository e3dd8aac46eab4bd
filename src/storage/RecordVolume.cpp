#include "storage/RecordVolume.h"

namespace qvsvr::kelvo {

std::int64_t UsableGB(std::uint32_t totalGB, std::uint32_t freeGB, std::int64_t reservedGB,
                      std::int32_t reservePercent) {
  return std::int64_t{freeGB} - (reservedGB + std::int64_t{reservePercent} * totalGB / 100);
}

std::string ChooseVolume(const std::map<std::string, DriveRecord>& drives, std::int64_t desiredGB,
                         const MeasureDrive& measure) {
  std::string best;
  std::int64_t bestGB = 0;
  for (const auto& [name, record] : drives) {
    const std::int64_t usable = measure(name, record);
    if (usable < desiredGB || (!best.empty() && usable <= bestGB)) continue;
    best = name;
    bestGB = usable;
  }
  return best;
}

void RecordingState::Note(bool found) {
  if (!found && !recordingNotPossible) ++recordNotPossibleCount;
  recordingNotPossible = !found;
}

}  // namespace qvsvr::kelvo
