#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace qvsvr::kelvo {

// What one run has met. Counted whether or not it removes.
struct CleanupCounts {
  std::size_t volumes = 0, years = 0, months = 0, days = 0, hours = 0;
  std::size_t emptyVolumes = 0, emptyYears = 0, emptyMonths = 0, emptyDays = 0, emptyHours = 0;
  std::size_t files = 0;          // index and metadata files
  std::size_t emptyFiles = 0;     // media files too short to hold a frame
  std::size_t orphanedFiles = 0;  // index and metadata files without a media file
};

// Looks for what crashes leave in the trees: media files that hold nothing, companions without a
// media file, empty directories. No file of the current hour or of the five minutes before it is
// touched, since it may be being written; nor an older one of which `isWritten` says so, as one
// that goes on for want of room; nor one whose media can't be looked at, whatever the reason. It
// finds files by their companions: media without an index can still be repaired and is left alone.
// With `removing` it removes what it finds, else it only tells. Ends early when `stop` is set. Any
// thread; in fact the sweeper's, at the end of a pass.
CleanupCounts FsCleanup(qv::kelvo::Platform& platform, const std::vector<std::string>& volumes,
                        const std::atomic<bool>& stop, bool removing,
                        const std::function<bool(const std::string& media)>& isWritten);

// Visits the paths of a directory's index and metadata files until `visit` returns false. Returns
// 0; -1 when there is neither such a file nor a media file; -2 when the directory can't be listed.
int VisitCompanionFiles(qv::kelvo::Directories& directories, const std::string& directory,
                        const std::function<bool(const std::string&)>& visit);

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
