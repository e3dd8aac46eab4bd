#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "archiving/IScanner.h"
#include "platform/Platform.h"
#include "tree/BucketFetch.h"
#include "tree/HourCursor.h"
#include "tree/HourListing.h"
#include "tree/RecordPath.h"
#include "tree/RequestKey.h"

namespace qv::kelvo {

inline constexpr std::uint32_t kVolumesLocal = 1;    // local drives
inline constexpr std::uint32_t kVolumesArchive = 2;  // archive targets

// Which archives take part, by id. An id that isn't in the map takes part.
using ArchiveFilter = std::map<std::int32_t, bool>;

// Knows where recordings lie, and walks their tree hour by hour. An hour that isn't there costs one
// test of a directory for each level that it lacks, so that ten empty years are found empty by ten
// tests a volume. An hour is served by the local volumes, or, if they have nothing of it, by the
// archives: never half by each. Nothing is kept between steps but which buckets are left alone and
// what they last said.
class FileSystemBase {
 public:
  // Borrows both for its life. `tables`: what is known of local volumes, or null.
  explicit FileSystemBase(Platform& system, RunTables* tables = nullptr)
      : platform(system), runTables(tables), buckets(system) {}
  virtual ~FileSystemBase() = default;

  // Replaces `list` by volume roots, each ending in the separator. The base version gives the
  // machine's fixed drives for kVolumesLocal. `filter` may be null.
  virtual void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                          const ArchiveFilter* filter);

  // Replaces `list` by archive targets; the base version knows none. `filter` may be null.
  virtual void GetTargets(TargetList& list, std::uint32_t flags, const ArchiveFilter* filter);

  // The longest time for which a frame may wait for an alarm before it is written, 0 or less for
  // none. Any thread.
  void SetLongestPreAlarm(std::int32_t seconds) { longestPreAlarm = seconds; }
  // How far the frames of a file may lie from the moment in its name: behind it as long as a file
  // lasts, and ahead of it by the wait for an alarm. Any thread.
  [[nodiscard]] std::int64_t SlackSeconds() const;

  // Moves `time`, the start of a local hour, on to the next hour that exists, itself included.
  // False when there is none before `end`, or the search was given up while it waited for a bucket.
  // A year that is missing costs one test of each place.
  [[nodiscard]] bool FindNextHour(UtcMs& time, UtcMs end);

  // The media files of an hour: of the local volumes or, if they have none, of the archives, whose
  // buckets are first asked for what `requested` names (everything if it is empty). `volumes` is
  // the list that the listing's positions count in.
  void ListHour(UtcMs time, std::span<const RequestKey> requested,
                std::vector<std::string>& volumes, HourListing& listing);

  // FindNextHour and ListHour. True with an empty listing for an hour without files.
  [[nodiscard]] bool SearchHour(UtcMs& time, UtcMs end, std::span<const RequestKey> requested,
                                std::vector<std::string>& volumes, HourListing& listing);

  [[nodiscard]] BucketAccess& Buckets() { return buckets; }

  // A local recording turned out damaged when it was read. Any thread.
  virtual void NoteUnreadable(const std::string& /*path*/) {}
  // While the result lives no recording whose name lies between these seconds since 1970 is mended
  // under its reader's hands. Any thread.
  [[nodiscard]] virtual std::shared_ptr<const void> HoldRecordings(std::int64_t /*first*/,
                                                                   std::int64_t /*last*/) {
    return nullptr;
  }

 protected:
  Platform& platform;
  RunTables* const runTables;  // may be null

 private:
  // Whether any volume or bucket has a directory for that local year, month, day or hour.
  [[nodiscard]] bool LevelExists(UtcMs time, TreeLevel level);

  std::atomic<std::int32_t> longestPreAlarm{0};
  BucketAccess buckets;
};

// The machine's fixed drives and the directory of the operating system. Failures are logged; the
// results hold what was gathered. Returns whether all drives are told.
bool ScanLocalDrives(Platform& platform, std::vector<std::string>& list,
                     std::string& systemDirectory);

// Removes each name whose file system was already named earlier in the list, with a warning. Lists
// of fewer than two names, and names that can't be examined, are left alone.
void RemoveDuplicateDevices(Drives& drives, std::vector<std::string>& list);

}  // namespace qv::kelvo
