#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "media/StreamId.h"
#include "platform/Directory.h"

namespace qvsvr::kelvo {

// The dated tree as retention walks it. Times are seconds since 1970; names of directories and
// files are local time. `volumeDepth` is the number of path parts of a volume's root. Any thread.

inline constexpr std::int64_t kSecondsPerHour = 3600;
inline constexpr std::int64_t kSecondsPerDay = 24 * kSecondsPerHour;
// What a path that stands for no time gives.
inline constexpr std::int64_t kNoTime = std::numeric_limits<std::int64_t>::max();
// Minute and second of a recording's name are at most 5999: above it a file is no recording.
inline constexpr std::uint32_t kNameNumberLimit = 6000;
// No name of an hour directory's files is further from the directory's own time than this, whatever
// the time zone does meanwhile.
inline constexpr std::int64_t kNameSlack = 2 * kSecondsPerDay;

// Later than every time if it doesn't fit.
[[nodiscard]] constexpr std::int64_t AddSeconds(std::int64_t time, std::int64_t seconds) {
  return time > kNoTime - seconds ? kNoTime : time + seconds;
}

// The time that a directory of the tree or a file in it stands for.
[[nodiscard]] std::int64_t PathToTime(std::string_view path, std::size_t volumeDepth);

// The id in a recording's name: eight hexadecimal digits behind the first `-` of the whole path; 0
// if there are none.
[[nodiscard]] qv::kelvo::StreamID FileNameKey(std::string_view path);

// Reads the number that a name begins with; false unless it is followed by `-`. Numbers beyond the
// range become the greatest one.
[[nodiscard]] bool ReadNameNumber(std::string_view name, std::uint32_t& number);

// The directories directly below `directory` whose whole name is a number of the range, as wide as
// `low` asks: four digits from 2000 on, else two. Ascending.
[[nodiscard]] std::vector<std::string> ListHourParts(qv::kelvo::Directories& directories,
                                                     const std::string& directory, int low,
                                                     int high);

// The levels of the tree below a volume, with what ListHourParts takes.
struct PartRange {
  int low;
  int high;
};
inline constexpr PartRange kPartRanges[] = {{2000, 2050}, {1, 12}, {1, 31}, {0, 23}};

// The path of a directory's child, with a separator at its end.
[[nodiscard]] std::string ChildDirectory(const std::string& directory, const std::string& name);

// Time of the oldest hour directory of all volumes; kNoTime when there is none.
[[nodiscard]] std::int64_t OldestHour(qv::kelvo::Directories& directories,
                                      const std::vector<std::string>& volumes,
                                      std::size_t volumeDepth);

// The directories of one hour, on those volumes that have it, with the volume's place in the list.
struct HourDir {
  std::string path;  // with a separator at its end
  std::size_t volume = 0;
};
[[nodiscard]] std::vector<HourDir> HourDirs(const std::vector<std::string>& volumes,
                                            std::int64_t hour);

// Where a walk past `hour`, of which no volume has a directory, may go on from: the last hour of a
// day of which no volume has one either, at whose beginning `hour` lies; else `hour` itself.
[[nodiscard]] std::int64_t SkipAbsentDay(const std::vector<std::string>& volumes,
                                         std::int64_t hour);

// The times of an hour directory's files, without asking the calendar for each of them.
class HourTimes {
 public:
  HourTimes(const std::string& hourDirectory, std::size_t volumeDepth);

  // As PathToTime of a file in that directory whose name begins with `number`, which is below
  // kNameNumberLimit, and `-`.
  [[nodiscard]] std::int64_t At(std::uint32_t number) const;
  // Of the directory.
  [[nodiscard]] std::int64_t Start() const { return start; }

 private:
  std::string directory;
  std::size_t depth;
  std::int64_t start;
  bool even;  // the clocks aren't changed within the hour
};

// Visits the recordings of an hour directory by the shape of their names, in no particular order,
// until `visit` returns false. Sizes are 0 unless asked for.
struct NamedRecording {
  std::uint32_t number = 0;  // minute * 100 + second
  std::string_view name;     // valid during the visit only
  std::uint64_t size = 0;
};
void ListRecordings(qv::kelvo::Directories& directories, const std::string& directory,
                    qv::kelvo::ListSizes sizes,
                    const std::function<bool(const NamedRecording&)>& visit);

}  // namespace qvsvr::kelvo
