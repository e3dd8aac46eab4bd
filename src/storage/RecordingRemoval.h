#pragma once

#include <string>

namespace qvsvr::kelvo {

// Removal of recordings from the dated tree of a volume. Any thread: a file that another thread
// removed first is no error. `root` is the volume's, with which `path` begins; nothing at it or
// above it is touched. With an empty root no directory is.

// Removes the media file `path`, then its index and its companion, and the directories that this
// empties. False when the media file could not be removed, whose companions stay then, or the
// companion; a failure of the index is only logged.
bool RemoveRecording(const std::string& path, const std::string& root);

// Removes the directory of the file `path` and those above it while they are empty. A link to a
// directory stays, whatever it leads to.
void PruneEmptyParents(const std::string& path, const std::string& root);

}  // namespace qvsvr::kelvo
