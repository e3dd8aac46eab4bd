#pragma once

#include <cstdint>

#include "platform/Clock.h"
#include "record/ChannelSlot.h"
#include "record/PendingFrames.h"

namespace qvsvr::kelvo {

// What to keep of one channel, as functions of its slot, a frame and the frame's hour of the week.

// Whether two moments lie at most `distance` milliseconds apart, in either order; never for a
// negative distance. Any values.
[[nodiscard]] bool Within(qv::kelvo::UtcMs a, qv::kelvo::UtcMs b, std::int64_t distance);

// `time` less `milliseconds`, stopping at the ends of the range.
[[nodiscard]] qv::kelvo::UtcMs SubtractMs(qv::kelvo::UtcMs time, std::int64_t milliseconds);

// The recording schedule: an alarm always records; otherwise the first entry that covers the hour
// decides.
[[nodiscard]] bool ShouldRecord(const ChannelSlot& slot, const PendingFrame& frame, int hourOfWeek);

// Time-lapse: whether the channel is due for a picture. `defaultLapse` is the interval, in
// milliseconds, where the slot's own schedule says nothing; below 1 is off.
[[nodiscard]] bool ShouldLapse(const ChannelSlot& slot, const PendingFrame& frame, int hourOfWeek,
                               std::int32_t defaultLapse);

// Whether an alarm or motion may still begin that wants this frame. `newest` is the time of the
// newest pending frame.
[[nodiscard]] bool InWaitingTime(const ChannelSlot& slot, const PendingFrame& frame,
                                 qv::kelvo::UtcMs newest);

}  // namespace qvsvr::kelvo
