#pragma once

#include <cstddef>
#include <string>

namespace qvsvr::kelvo {

// Removal of recordings from the dated tree. Any thread: a file that another thread removed first
// is no error. `volumeDepth` is the number of path parts of a volume's root.

// Removes the media file `path`, its index and its companion, and the directories that this
// empties. False when the media file or the companion could not be removed; a failure of the index
// is only logged.
bool RemoveRecording(const std::string& path, std::size_t volumeDepth);

// Removes the directory of the file `path` and those above it while they are empty, up to the
// volume's root, which stays.
void PruneEmptyParents(const std::string& path, std::size_t volumeDepth);

}  // namespace qvsvr::kelvo
