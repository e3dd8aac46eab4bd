#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "media/PsFormat.h"
#include "media/RunTables.h"
#include "platform/Directory.h"

namespace qv::kelvo {

// The media files of one hour over several volumes, in the order in which a search visits them:
// recordings by moment and stream, then duplicates, then names that aren't recordings' names.
struct ListedFile {
  std::string name;
  std::vector<std::uint32_t> volumes;  // positions of the volumes that have it, ascending
};
using HourListing = std::vector<ListedFile>;

// Whether `a` comes before `b` in a listing.
[[nodiscard]] bool ComesBefore(std::string_view a, std::string_view b);

// The media files of `hourDirectories`, one per volume; a directory that can't be read has none.
// `known`, which may be null, is asked first and told.
[[nodiscard]] HourListing ListMediaFiles(Directories& directories,
                                         const std::vector<std::string>& hourDirectories,
                                         RunTables* known = nullptr);

// Visits the recordings of an hour directory by the shape of their names, in no particular order,
// until `visit` returns false. Sizes are 0 unless asked for. A directory that can't be read has
// none.
struct NamedRecording {
  std::uint32_t number = 0;  // minute * 100 + second
  std::string_view name;     // valid during the visit only
  std::uint64_t size = 0;
};
void ListRecordings(Directories& directories, const std::string& directory, ListSizes sizes,
                    const std::function<bool(const NamedRecording&)>& visit);

// Range tests of a search, by the moment in a file's name alone; seconds since 1970. `slack` is how
// far its frames may lie behind that moment, and how much was added to the end for those ahead.
[[nodiscard]] bool IsOutsideRange(std::int64_t fileStart, std::int64_t start, std::int64_t end,
                                  std::int64_t slack = kFileSeconds);

// Whether a file ends before the bucket that follows `bucket`, the last one answered, begins.
[[nodiscard]] bool IsBucketSkipped(std::int64_t fileStart, std::int64_t bucket,
                                   std::int64_t resolution, std::int64_t start, std::int64_t end,
                                   std::int64_t slack = kFileSeconds);

}  // namespace qv::kelvo
