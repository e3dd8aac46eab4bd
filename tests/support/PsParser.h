#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A second reader of .ps and .psi files, for tests only. It shares no code with the product: it
// reads byte by byte what docs/media-format.md tells, checks each field against every other place
// that says the same, and takes the payloads out.
namespace testsupport {

using Bytes = std::vector<std::uint8_t>;

struct PsStream {
  std::uint8_t type = 0, id = 0;
  std::uint8_t width16 = 0, height16 = 0;            // video
  std::uint16_t bufSizeSamples = 0, sampleRate = 0;  // audio
  std::string name;
  std::uint8_t encoder = 0, channel = 0;  // from the stream record
  std::uint32_t frames = 0;
};

struct PsFrame {
  std::uint32_t index = 0;  // of its record
  unsigned stream = 0;
  unsigned type = 0;   // 0 audio, 1 I, 2 P, 3 B
  unsigned flags = 0;  // bits 7 to 5
  unsigned encoder = 0, channel = 0;
  std::uint16_t date = 0;
  std::uint32_t ms = 0;
  std::int64_t timeMs = 0;   // since 1970 UTC
  std::uint64_t offset = 0;  // in the .ps file
  std::uint32_t total = 0;
  std::uint32_t previous = 0, next = 0;
  std::uint16_t groupFrame = 0;
  Bytes userData;  // whole triples, decoded
  Bytes payload;
};

struct PsRun {
  unsigned stream = 0, flags = 0;
  std::uint16_t firstDate = 0, lastDate = 0;
  std::uint32_t firstMs = 0, lastMs = 0;
  friend bool operator==(const PsRun&, const PsRun&) = default;
};

struct PsRecording {
  std::string path;
  std::uint8_t fileInput = 0;
  std::array<PsStream, 32> streams;
  std::vector<PsFrame> frames;
  std::vector<PsRun> runs;
  // The last index records have no complete frames behind them (only after a crash).
  bool lastFrameCut = false;
  std::size_t cutRecords = 0;       // those behind the first of them
  std::vector<std::string> faults;  // empty when everything agrees

  // Frames of one stream, in order.
  [[nodiscard]] std::vector<const PsFrame*> Of(unsigned stream) const;
};

enum class PsEnd {
  Closed,   // the pair must be final
  Unclosed  // the writer was killed, or a write failed: counts and runs may be missing
};

// Reads the pair of `path` (the .ps) and checks it; never throws, all trouble is in `faults`.
[[nodiscard]] PsRecording ReadPs(const std::string& path, PsEnd end = PsEnd::Closed);

}  // namespace testsupport
