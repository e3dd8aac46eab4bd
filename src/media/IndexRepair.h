#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "media/MediaHead.h"
#include "platform/Platform.h"

namespace qv::kelvo {

// Mends a recording that a power cut left: makes its index anew from the frames that the media file
// holds, as far as the old index doesn't know them, and gives media that lost their head another
// one (docs/media-format.md).

enum class RepairOutcome {
  Good,       // nothing to mend
  Repaired,   // the new index is in place
  Busy,       // in use, or changed meanwhile: nothing was done
  WouldLose,  // fewer frames could be read than before: nothing was done
  Failed      // for `error`: the old index is in place
};

struct RepairOptions {
  // Replaces a good index, too, and one that is better than what the media file tells.
  bool force = false;
  // Takes an index that is whole, but was never closed, for damaged, too.
  bool finish = false;
  // Another recording of the same stream, of which a lost head and the setup of the streams are
  // borrowed; an empty path when there is none. Asked only if needed. May be null.
  std::function<std::string()> sibling = nullptr;
  // What a head that nobody lends says of the input.
  std::uint8_t fileInput = 0xFF;
  // Runs the exchange of the files, which takes some milliseconds, while nobody opens the pair;
  // returns false without running it when the pair is in use. May be null.
  std::function<bool(const std::function<void()>& exchange)> exclusively = nullptr;
};

struct RepairResult {
  RepairOutcome outcome = RepairOutcome::Good;
  int error = 0;                 // the system's, or kRanShort
  std::size_t framesBefore = 0;  // that a reader saw
  std::size_t frames = 0;        // whole ones in the media file
  std::size_t runs = 0;
  std::uint64_t unreadable = 0;  // bytes of the media file that belong to no frame
};

// Whether a look at the heads of both files and at their ends makes a pair suspicious: it may still
// turn out good. False also for files that can't be opened now, and for those that can't hold a
// frame.
[[nodiscard]] bool LooksDamaged(MediaFiles& files, const std::string& mediaPath);

// Mends the recording, unless it is good, and never at the cost of a frame that could be read. The
// old index stays in place until the new one is on disk and was read back; what a death at any
// moment leaves is `X.psi.psi` or `X.psi.psm`, which the cleanup takes for orphans. Blocks. The
// recording must not be written meanwhile; one that grows is left alone.
[[nodiscard]] RepairResult RepairRecording(Platform& platform, const std::string& mediaPath,
                                           const RepairOptions& options);

}  // namespace qv::kelvo
