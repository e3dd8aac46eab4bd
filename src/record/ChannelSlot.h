#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "storage/Schedule.h"

namespace qvsvr::kelvo {

inline constexpr int kSlots = 32;  // of a stream: 0 to 15 video, 16 to 31 audio
inline constexpr int kVideoSlots = 16;

struct PendingFrame;

// Configuration and state of one channel of a record stream. CodecConfig sets the configuration,
// RecordStream the state; a slot is in use once its encoder is known. Times are capture times, by
// the camera's clock, not by ours: channels of one stream may be years apart.
struct ChannelSlot {
  std::int32_t Standard = 0;                        // coding, as the configuration numbers it
  std::int32_t Width = 0, Height = 0;               // video, pixels
  std::int32_t BufSizeSamples = 0, SampleRate = 0;  // audio
  std::int32_t Encoder = -1;                        // -1 when the slot is empty
  // Number within the encoder, in a channel's own stream within the device; -1 when empty.
  std::int32_t Input = -1;
  std::string Name;
  qvsvr::kelvo::Schedule Schedule;
  qvsvr::kelvo::Schedule LapseSchedule;
  std::int32_t PostMotion = 0;  // milliseconds
  std::int32_t PreMotion = 0;   // milliseconds; with those that motion takes to be noticed
  std::int32_t PreAlarm = 0;    // seconds
  // Running alarms by action number, and their end; nothing while no end is known.
  std::map<std::int32_t, std::optional<qv::kelvo::UtcMs>> ActiveAlarms;
  std::optional<qv::kelvo::UtcMs> MotionTime;   // last motion frame, while motion runs
  std::optional<qv::kelvo::UtcMs> LastWritten;  // last frame written
};

// What to keep of one channel, as functions of its slot, a frame and the frame's hour of the week.

// Whether two moments lie at most `distance` milliseconds apart, in either order; never for a
// negative distance. Any values.
[[nodiscard]] bool Within(qv::kelvo::UtcMs a, qv::kelvo::UtcMs b, std::int64_t distance);

// `time` less `milliseconds`, stopping at the ends of the range.
[[nodiscard]] qv::kelvo::UtcMs SubtractMs(qv::kelvo::UtcMs time, std::int64_t milliseconds);

// The recording schedule: an alarm always records; otherwise the first entry that covers the hour
// decides, also when a later one says otherwise. No entry, no recording.
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
