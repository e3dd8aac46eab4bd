#include "nvrhost/Clip.h"

#include <algorithm>

namespace nvrhost {

void Track::Append(std::span<const std::byte> payload, std::int64_t timeUs, std::uint8_t type) {
  frames.push_back({bytes.size(), payload.size(), timeUs, type});
  bytes.insert(bytes.end(), payload.begin(), payload.end());
}

std::int64_t Track::LongestGroupUs() const {
  std::int64_t longest = 0, first = -1, last = 0;
  for (const auto& frame : frames) {
    if (frame.type > KELVO_FRAME_I) continue;
    if (first < 0) {
      first = frame.timeUs;
    } else {
      longest = std::max(longest, frame.timeUs - last);
    }
    last = frame.timeUs;
  }
  return first < 0 ? durationUs : std::max(longest, durationUs - last + first);
}

Playhead::Playhead(const Clip& clip, std::int64_t startUs) {
  for (const auto* track : {&clip.video, &clip.audio}) {
    if (!track->Empty()) positions.push_back({track, startUs});
  }
}

std::int64_t Playhead::DueAt(const Position& position) {
  return position.beginUs + position.track->frames[position.index].timeUs;
}

std::size_t Playhead::NextPosition() const {
  return positions.size() == 2 && DueAt(positions[1]) < DueAt(positions[0]) ? 1 : 0;
}

Playhead::Due Playhead::Next() const {
  const auto& position = positions[NextPosition()];
  return {position.track, &position.track->frames[position.index], DueAt(position)};
}

void Playhead::Advance() {
  auto& position = positions[NextPosition()];
  if (++position.index == position.track->frames.size()) {
    position.index = 0;
    position.beginUs += position.track->durationUs;
  }
}

}  // namespace nvrhost
