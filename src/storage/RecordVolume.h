#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "storage/DriveTable.h"

namespace qvsvr::kelvo {

// GB that may be recorded on a drive: what is free, less what is reserved on it and the share that
// stays free. Negative when that share is in use.
[[nodiscard]] std::int64_t UsableGB(std::uint32_t totalGB, std::uint32_t freeGB,
                                    std::int64_t reservedGB, std::int32_t reservePercent);

// Measures one drive: its usable GB.
using MeasureDrive = std::function<std::int64_t(const std::string&, const DriveRecord&)>;

// The drive with the most usable space among those with at least `desiredGB`, the earlier on a tie;
// empty when there is none.
[[nodiscard]] std::string ChooseVolume(const std::map<std::string, DriveRecord>& drives,
                                       std::int64_t desiredGB, const MeasureDrive& measure);

// Whether a volume with room could be found, and how often that ceased to be so. Worker thread
// only.
struct RecordingState {
  bool recordingNotPossible = false;
  std::uint32_t recordNotPossibleCount = 0;

  // Takes the outcome of one choice.
  void Note(bool found);
};

}  // namespace qvsvr::kelvo
