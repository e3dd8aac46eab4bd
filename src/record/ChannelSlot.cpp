#include "record/ChannelSlot.h"

#include <algorithm>
#include <limits>

#include "record/PendingFrames.h"

namespace qvsvr::kelvo {
namespace {

// Values of a recording schedule; any other records nothing but alarms.
constexpr std::int32_t kRecordAlways = 2;
constexpr std::int32_t kRecordOnMotion = 1;

}  // namespace

bool Within(qv::kelvo::UtcMs a, qv::kelvo::UtcMs b, std::int64_t distance) {
  if (distance < 0) return false;
  const auto [low, high] = std::minmax(a, b);
  return static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low) <=
         static_cast<std::uint64_t>(distance);
}

qv::kelvo::UtcMs SubtractMs(qv::kelvo::UtcMs time, std::int64_t milliseconds) {
  using Limits = std::numeric_limits<qv::kelvo::UtcMs>;
  if (milliseconds > 0 && time < Limits::min() + milliseconds) return Limits::min();
  if (milliseconds < 0 && time > Limits::max() + milliseconds) return Limits::max();
  return time - milliseconds;
}

bool ShouldRecord(const ChannelSlot& slot, const PendingFrame& frame, int hourOfWeek) {
  if ((frame.Flags & kFlagAlarm) != 0) return true;
  for (const ScheduleEntry& entry : slot.Schedule) {
    if (!entry.Covers(hourOfWeek)) continue;
    if (entry.Value == kRecordAlways) return true;
    return entry.Value == kRecordOnMotion && ((frame.Flags & kFlagMotion) != 0 || frame.Ptz);
  }
  return false;
}

bool ShouldLapse(const ChannelSlot& slot, const PendingFrame& frame, int hourOfWeek,
                 std::int32_t defaultLapse) {
  if (frame.Slot >= kVideoSlots) return false;
  std::int32_t interval = defaultLapse;
  for (const ScheduleEntry& entry : slot.LapseSchedule) {
    if (!entry.Covers(hourOfWeek) || entry.Value < 1) continue;
    interval = entry.Value;
    break;
  }
  if (interval < 1) return false;
  // A last picture that is newer was taken before the camera's clock was set back.
  if (!slot.LastWritten || *slot.LastWritten > frame.Time) return true;
  return !Within(frame.Time, *slot.LastWritten, std::int64_t{interval} - 1);
}

// A frame that an alarm has flagged is wanted already. One that motion has flagged still waits for
// an alarm, which would keep it where the schedule doesn't record motion.
bool InWaitingTime(const ChannelSlot& slot, const PendingFrame& frame, qv::kelvo::UtcMs newest) {
  if ((frame.Flags & kFlagAlarm) != 0) return false;
  if (Within(frame.Time, newest, std::int64_t{slot.PreAlarm} * 1000)) return true;
  if ((frame.Flags & kFlagMotion) != 0) return false;
  return Within(frame.Time, newest, slot.PreMotion);
}

}  // namespace qvsvr::kelvo
