#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "tree/CFileInfo.h"

namespace qvsvr::kelvo {

// A file that waits for its playback: what of a CFileInfo is needed for it, in little room, since a
// search may find many thousands.
struct PlaybackFile {
  explicit PlaybackFile(const qv::kelvo::CFileInfo& info);

  // One chosen stream: its first position to send, and its frames ahead of the first position.
  struct Stream {
    std::uint32_t start = 0;
    std::uint32_t consumed = 0;
    std::uint8_t number = 0;
  };

  std::string path;
  qv::kelvo::StreamID id = 0;
  std::uint32_t selectedMask = 0;
  std::uint32_t firstPosition = 0;
  std::uint32_t endPosition = 0;
  std::uint32_t cursor = 0;  // record number of the first position
  std::vector<Stream> streams;
  std::vector<std::uint32_t> sendList;
  std::int64_t startTime = 0;
  std::int64_t endTime = 0;
};

// In the order of discovery.
using PlaybackFiles = std::deque<PlaybackFile>;

}  // namespace qvsvr::kelvo
