#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "media/StreamId.h"
#include "platform/Clock.h"

namespace qv::kelvo {

// Names of recordings and their dated tree. Nothing else builds or parses these names. Paths are
// UTF-8. Any thread.

// The hour directory of a local time: root, "YYYY", "MM", "DD", "HH", each ended by the separator.
// `root` ends in the separator.
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

// The index beside a media file: the same path with `i` appended, cut to 260 characters.
[[nodiscard]] std::string IndexPath(const std::string& mediaPath);

// What a bare name says. The views borrow from the text that was parsed.
struct ParsedName {
  std::string_view name;
  std::string_view extension;
  std::string_view suffix;  // between the id and the extension
  bool valid = false;
  std::uint8_t minute = 0;  // as written: the range isn't checked
  std::uint8_t second = 0;
  StreamID id = 0;
  bool isDuplicate = false;  // the suffix is the one letter `a`
};
[[nodiscard]] ParsedName ParseName(std::string_view name);

// What a full path says: the last four directories as the hour, the name as minute, second and id.
struct PathFields {
  std::uint32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  StreamID id = 0;

  bool operator==(const PathFields&) const = default;
};
// Fills the fields in order and returns whether the three fields of the name all parsed. Fields
// that don't parse stay as they were; with three or fewer directories the date is left alone.
[[nodiscard]] bool ParsePath(std::string_view path, PathFields& fields);

}  // namespace qv::kelvo
