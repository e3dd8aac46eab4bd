#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {

// Gives video packets the time stamps that a muxer wants. Recordings hold frames in coded order
// with one time each; a frame that others overtake on the screen is shown later than it is decoded.
// Works group by group: what follows a key frame is never shown before what lies before that frame.
class PresentationTimes {
 public:
  explicit PresentationTimes(AVCodecID codec);

  struct Coded {
    PacketPtr packet;
    std::int64_t ticks;  // 90 kHz
    std::uint8_t type;   // KELVO_FRAME_...
    std::int64_t order = 0;
  };
  // The next frame in coded order; a key frame ends the group before it.
  void Add(PacketPtr packet, std::int64_t ticks, std::uint8_t type);
  // Ends the last group.
  void Finish() { EndGroup(); }
  // Packets with pts, dts and duration in 90 kHz, in coded order. Empties the list.
  [[nodiscard]] std::vector<PacketPtr> Take() { return std::move(ready); }

 private:
  void EndGroup();
  [[nodiscard]] std::int64_t OrderOf(const AVPacket& packet);
  // For each frame of the group, its place on the screen.
  [[nodiscard]] std::vector<std::size_t> Places();

  const AVCodecID codecId;
  CodecPtr context;
  ParserPtr parser;
  std::vector<Coded> group;
  std::vector<PacketPtr> ready;
  bool begun = false;
  std::size_t delay = 0;               // frames that decoding runs ahead of the screen
  std::deque<std::int64_t> lastTicks;  // of the last `delay` frames
  std::int64_t lastDts = 0;
  std::int64_t lastDuration = 0;
};

}  // namespace nvrhost
