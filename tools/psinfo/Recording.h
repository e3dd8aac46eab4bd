#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace psinfo {

// A reader of recordings that goes by docs/media-format.md alone: it shares no code with
// src/media/, so that each of the two can be held against the other. It reads byte by byte, checks
// each field against every other place that says the same, and takes the payloads out.

using Bytes = std::vector<std::uint8_t>;

// What a pair is held against.
enum class Expected {
  AnyWriters,  // the rules that a reader needs; frames of older writers and short maps are good
  Closed,      // every byte, as the plug-in writes it
  Unclosed     // the same by a writer that was killed, or whose write failed: counts and runs may
               // be missing, and so may the frames of the last records
};

constexpr unsigned kStreams = 32, kVideoStreams = 16;

struct Stream {
  std::uint8_t type = 0, id = 0;
  std::uint8_t width16 = 0, height16 = 0;            // video
  std::uint16_t bufSizeSamples = 0, sampleRate = 0;  // audio
  std::string name;
  std::uint8_t encoder = 0, channel = 0;  // from the stream record
};

// A frame as its own header tells of it.
struct Frame {
  unsigned stream = 0;
  unsigned type = 0;   // 0 audio, 1 I, 2 P, 3 B
  unsigned flags = 0;  // bits 7 to 5
  unsigned encoder = 0, channel = 0;
  std::uint8_t info = 0, streamInfo = 0;  // the bytes that hold these four
  std::uint16_t date = 0;
  std::uint32_t ms = 0;
  std::int64_t timeMs = 0;   // since 1970 UTC; 0 for a date that is none
  std::uint64_t offset = 0;  // in the .ps file
  std::uint32_t total = 0;
  std::uint16_t groupFrame = 0;
  Bytes userData;  // whole triples, decoded
  Bytes payload;   // not with AnyWriters
};

struct Run {
  unsigned stream = 0, flags = 0;
  std::uint16_t firstDate = 0, lastDate = 0;
  std::uint32_t firstMs = 0, lastMs = 0;
  friend bool operator==(const Run&, const Run&) = default;
};

struct Recording {
  std::string path;              // of the .ps file
  std::uint64_t firstFrame = 0;  // where frames begin
  bool hasMap = false;
  std::uint8_t fileInput = 0;
  std::array<Stream, kStreams> streams;
  std::vector<Frame> frames;
  std::vector<Run> runs;
  // The last index records have no complete frames behind them (only with Unclosed).
  bool lastFrameCut = false;
  std::size_t cutRecords = 0;    // those behind the first of them
  std::uint64_t mediaSize = 0;   // of the .ps file
  std::uint64_t unreadable = 0;  // bytes of it that belong to no frame
  // "media offset 12: " and the rule that is broken there; empty when everything agrees.
  std::vector<std::string> faults;

  void MediaFault(std::uint64_t offset, const std::string& rule);
  void IndexFault(std::uint64_t offset, const std::string& rule);
  // Frames of one stream, in order.
  [[nodiscard]] std::vector<const Frame*> Of(unsigned stream) const;
};

// Reads the pair of `path` (the .ps) and checks it. Throws std::runtime_error when the media file
// can't be read.
[[nodiscard]] Recording ReadRecording(const std::string& path, Expected expected);

}  // namespace psinfo
