#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kelvo/host_abi.h"

namespace nvrhost {

// Encoded frames of one medium, in the order an encoder delivers them, made to be repeated.
struct Track {
  struct Frame {
    std::size_t offset;
    std::size_t size;
    std::int64_t timeUs;  // when the encoder delivers it, from the start of the track
    std::uint8_t type;    // KELVO_FRAME_...
  };

  int codec = 0;  // hostkit/Codecs.h
  int width = 0, height = 0;
  int sampleRate = 0, samplesPerFrame = 0;
  std::vector<std::byte> bytes;
  std::vector<Frame> frames;
  std::int64_t durationUs = 0;  // after which it begins again

  [[nodiscard]] bool Empty() const { return frames.empty(); }
  [[nodiscard]] std::span<const std::byte> Payload(const Frame& frame) const {
    return std::span(bytes).subspan(frame.offset, frame.size);
  }
  void Append(std::span<const std::byte> payload, std::int64_t timeUs, std::uint8_t type);
  // Longest time from one I frame to the next, over the seam too.
  [[nodiscard]] std::int64_t LongestGroupUs() const;
};

// What one camera shows. Without audio that track is empty.
struct Clip {
  Track video;
  Track audio;
};

// Walks through a clip for ever, video and audio together by time.
class Playhead {
 public:
  struct Due {
    const Track* track;
    const Track::Frame* frame;
    std::int64_t timeUs;
  };

  // The clip must outlive the playhead. Its first frame is due at `startUs`.
  Playhead(const Clip& clip, std::int64_t startUs);
  [[nodiscard]] Due Next() const;
  void Advance();

 private:
  struct Position {
    const Track* track;
    std::int64_t beginUs;  // of this round
    std::size_t index = 0;
  };
  [[nodiscard]] static std::int64_t DueAt(const Position& position);
  [[nodiscard]] std::size_t NextPosition() const;

  std::vector<Position> positions;
};

}  // namespace nvrhost
