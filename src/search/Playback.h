#pragma once

#include "search/PrepareFile.h"
#include "search/SearchHelper.h"
#include "search/SearchTargetFileSystem.h"

namespace qvsvr::kelvo {

// Sends the frames of `files` to the host, in the order of time over all files at once, as fast as
// the host takes them. Uses up `files`; one that can't be read ends itself only. False when the
// host cancelled or failed.
[[nodiscard]] bool PlayBack(SearchHelper& helper, SearchTargetFileSystem& target,
                            PlaybackFiles& files);

}  // namespace qvsvr::kelvo
