#pragma once

#include <array>
#include <cstdint>

#include "search/SearchRequest.h"
#include "search/TimeRange.h"
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

}  // namespace qvsvr::kelvo
