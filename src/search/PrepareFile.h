#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "search/SearchRequest.h"
#include "tree/CFileInfo.h"

namespace qvsvr::kelvo {

// Moments still to be answered, by the low five bits of the input's number; null for none.
using MomentTable = std::array<Moments*, 32>;

// What is wanted of one file.
struct FileRequest {
  std::uint32_t videoMask = 0;  // inputs, by the low five bits of their number
  std::uint32_t audioMask = 0;
  TimeRange range;
  std::int64_t resolution = 0;
  const MomentTable* moments = nullptr;  // not null: pictures at chosen moments
};

// Chooses the streams and frames of `info.path` that answer the request: pictures at moments, one
// picture per bucket (`bucket` is the last one answered, -1 at first, and goes from file to file),
// or everything from the last key frame at or before the start on. Fills `info`, whose rows then
// tell of the chosen frames. False when there is nothing to send or the file can't be read.
[[nodiscard]] bool PrepareFile(qv::kelvo::PSReader& reader, qv::kelvo::CFileInfo& info,
                               const FileRequest& request, std::int64_t& bucket);

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
