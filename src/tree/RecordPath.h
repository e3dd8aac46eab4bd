#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "media/StreamId.h"
#include "platform/Directory.h"
#include "tree/LocalTime.h"
#include "tree/RecordName.h"

namespace qv::kelvo {

// Paths of recordings: below a volume's root the dated tree "YYYY/MM/DD/HH/" of local time, in it
// the names of tree/RecordName.h. A root ends in the separator, whatever its depth. Paths are
// UTF-8. Any thread.

// The hour directory of a local time: root, "YYYY", "MM", "DD", "HH", each ended by the separator.
[[nodiscard]] std::string HourDirectory(const std::string& root, UtcMs time);

// The same path cut to the directories down to `level`.
enum class TreeLevel { Year = 1, Month, Day, Hour };
[[nodiscard]] std::string TreeDirectory(const std::string& root, UtcMs time, TreeLevel level);

enum class CreateDirectories { No, Yes };

// The path of a new recording: the hour directory and "MMSS-CPPPDDII.ps", or with an `a` before the
// extension, and a warning in the log, if that file exists. A third name is never tried. With id 0
// the result is the directory alone. A directory that can't be made is not reported here; the open
// of the file fails then.
[[nodiscard]] std::string MakePath(const std::string& root, UtcMs time, StreamID id,
                                   CreateDirectories create);

// What a full path says: the last four directories as the hour, the name as minute, second and id.
struct PathFields {
  std::uint32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  StreamID id = 0;

  bool operator==(const PathFields&) const = default;
};
// Fills the fields in order and returns whether the three fields of the name all parsed. Fields
// that don't parse stay as they were; with three or fewer directories the date is left alone.
[[nodiscard]] bool ParsePath(std::string_view path, PathFields& fields);

// The moments that a path may stand for, seconds since 1970: two of them apart only in the hour
// that comes twice when clocks are set back. kNoTime for a path that stands for none.
struct PathTime {
  std::int64_t first = kNoTime;
  std::int64_t last = kNoTime;

  bool operator==(const PathTime&) const = default;
};

// The times of one hour directory and its files, without asking the calendar for each of them.
class HourTimes {
 public:
  // Of the year, month, day and hour of `local`.
  explicit HourTimes(const CalendarTime& local);
  explicit HourTimes(UtcMs time) : HourTimes(ToLocal(time)) {}

  // False for an hour that the calendar or the time zone doesn't have: the tree has no directory
  // for it.
  [[nodiscard]] bool Exists() const { return start.first != kNoTime; }
  [[nodiscard]] PathTime Start() const { return start; }
  // The hour comes once, and the clocks aren't changed in it: the order of names is that of time.
  [[nodiscard]] bool IsEven() const { return even; }
  // Of a file whose name begins with `number`, in an hour that exists.
  [[nodiscard]] PathTime At(std::uint32_t number) const;

 private:
  CalendarTime hour;
  PathTime start;
  bool even = false;
};

// What a directory of the tree, or a file in an hour directory, stands for. `path` begins with the
// volume's root. A year, month or day stands for its first hour.
[[nodiscard]] PathTime TimeOfPath(std::string_view path, std::string_view root);

// The levels of the tree below a root and the numbers of their directories.
struct PartRange {
  int low;
  int high;
};
inline constexpr PartRange kPartRanges[] = {{2000, 2050}, {1, 12}, {1, 31}, {0, 23}};

// The directories directly below `directory` whose whole name is a number of the range, as wide as
// `low` asks: four digits from 2000 on, else two. Ascending.
[[nodiscard]] std::vector<std::string> ListHourParts(Directories& directories,
                                                     const std::string& directory, int low,
                                                     int high);

// The path of a directory's child, with a separator at its end.
[[nodiscard]] std::string ChildDirectory(const std::string& directory, const std::string& name);

// The file beside `path` whose name ends in another extension, which is given without a dot.
[[nodiscard]] std::string WithExtension(const std::string& path, const char* extension);

// `path` with a separator at its end, as the names of drives and roots have it.
[[nodiscard]] std::string WithSeparator(std::string path);

}  // namespace qv::kelvo
