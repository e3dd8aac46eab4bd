#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "media/PSReader.h"
#include "media/StreamId.h"
#include "tree/RecordPath.h"

namespace qv::kelvo {

// What a file's index says of one stream. Times are seconds since 1970 UTC, -1 for a date that
// doesn't exist.
struct StreamRow {
  std::int64_t firstTime = 0;
  std::int64_t lastTime = 0;
  std::uint32_t frames = 0;  // 0: the row isn't in use
  std::uint8_t codec = 0;
  std::uint8_t width16 = 0;
  std::uint8_t height16 = 0;
  std::uint8_t input = 0;    // of a file of one input: that input; else the stream's encoder
  std::uint8_t channel = 0;  // the stream's input within the device
  std::uint8_t flags = 0;    // all event flags of the stream
  std::uint16_t bufSizeSamples = 0;  // audio
  std::uint16_t sampleRate = 0;      // audio
};

// One recording as the walk over the tree and a search see it.
class CFileInfo {
 public:
  virtual ~CFileInfo() = default;

  // Takes the path and what it says of the hour, the moment and the stream. False when the name
  // isn't a recording's.
  bool ParsePath(std::string recordingPath);

  // Whether the file or one of its streams ends ahead of its start, since the clock was set back
  // meanwhile: then their ends tell nothing of what lies between.
  [[nodiscard]] bool RanBack() const;

  std::uint32_t selectedMask = 0;   // streams chosen for the current request, by bit
  std::uint32_t firstPosition = 0;  // among the chosen streams' frames: where playback starts
  std::uint32_t endPosition = 0;    // past the last frame to send
  std::array<std::uint32_t, kStreamCount> streamStart{};  // per stream, its first frame to send
  std::vector<std::uint32_t> sendList;  // positions of single frames, when only those are wanted
  PSReader::Place place;                // of the reader at `firstPosition`, or the file's start

  std::string path;
  StreamID id = 0;
  std::uint32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;

  std::array<StreamRow, kStreamCount> streamRows{};
  std::int64_t startTime = 0x7FFFFFFF;  // of the first frame, seconds
  std::int64_t endTime = 0;             // of the last frame
  std::uint8_t fileInput = 0xFF;        // the input byte of the file's own head
};

// A start that isn't known yet: the stream starts at its first frame that stands alone.
inline constexpr std::uint32_t kAtFirstKey = 0xFFFFFFFFu;

// Seconds since 1970; -1 for a date that doesn't exist.
[[nodiscard]] std::int64_t SecondsOf(PackedTime time);

// Fills the rows, but for what the media file alone tells, the times and `fileInput`.
void FillStreamRows(const RunTable& table, CFileInfo& info);

// Opens `info.path` with `reader`, which stays open, and fills the rows, the times and `fileInput`.
// False, with a line in the log, when the file can't be used.
[[nodiscard]] bool FillStreamRows(PSReader& reader, CFileInfo& info);

}  // namespace qv::kelvo
