#include "search/PlaybackFile.h"

namespace qvsvr::kelvo {

PlaybackFile::PlaybackFile(const qv::kelvo::CFileInfo& info)
    : path(info.path),
      id(info.id),
      selectedMask(info.selectedMask),
      firstPosition(info.firstPosition),
      endPosition(info.endPosition),
      cursor(info.place.cursor),
      sendList(info.sendList),
      startTime(info.startTime),
      endTime(info.endTime) {
  std::size_t count = 0;
  for (unsigned n = 0; n < qv::kelvo::kStreamCount; ++n) count += selectedMask >> n & 1u;
  streams.reserve(count);
  for (unsigned n = 0; n < qv::kelvo::kStreamCount; ++n) {
    if ((selectedMask >> n & 1u) == 0) continue;
    streams.push_back({info.streamStart[n], info.place.consumed[n], static_cast<std::uint8_t>(n)});
  }
}

}  // namespace qvsvr::kelvo
