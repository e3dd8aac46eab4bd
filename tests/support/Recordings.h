#pragma once

#include <gtest/gtest.h>

#include <array>
#include <span>
#include <string>

#include "media/PSFile.h"

namespace qv::kelvo {

using PsStreams = std::array<PsStreamDescriptor, kStreamCount>;

// MPEG-2 video of 1920 x 1088 and 8 kHz audio on every stream; its channel is its number of a kind.
inline PsStreams AllStreams() {
  PsStreams streams;
  for (unsigned n = 0; n < kStreamCount; ++n) {
    const bool video = n < kVideoStreams;
    streams[n].streamType = video ? 130 : 145;
    streams[n].streamId = static_cast<std::uint8_t>((video ? 0xE0 : 0xC0) + n % kVideoStreams);
    streams[n].channel = static_cast<std::uint8_t>(n % kVideoStreams);
    streams[n].width16 = 120;
    streams[n].height16 = 68;
    streams[n].sampleRate = 8000;
    streams[n].bufSizeSamples = 160;
  }
  return streams;
}

// Borrows the payload.
inline PSFrame MakeFrame(std::uint16_t stream, std::uint16_t type, UtcMs time,
                         const std::string& payload) {
  PSFrame frame;
  frame.stream = stream;
  frame.frameType = type;
  frame.channel = static_cast<std::uint8_t>(stream % kVideoStreams);
  frame.SetTime(time);
  frame.payload = reinterpret_cast<const std::byte*>(payload.data());
  frame.payloadSize = static_cast<std::uint32_t>(payload.size());
  return frame;
}

inline void WriteRecording(PSFile& file, const std::string& path, std::uint8_t fileInput,
                           const PsStreams& streams, std::span<const PSFrame> frames) {
  PsFileInfo info;
  info.fileInput[0] = fileInput;
  ASSERT_EQ(file.Create(path, info, streams, 0), kPsOk);
  for (const PSFrame& frame : frames) ASSERT_EQ(file.WriteFrame(frame), kPsOk);
  file.Close();
}

}  // namespace qv::kelvo
