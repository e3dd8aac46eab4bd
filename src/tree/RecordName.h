#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "media/StreamId.h"

namespace qv::kelvo {

// Names of recordings: "MMSS-CPPPDDII", an optional suffix and ".ps". Nothing else builds or parses
// them; tree/RecordPath.h does so for their directories. Views borrow from the text given. Any
// thread.

// What a bare name says.
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

// Minute and second, the id and ".ps"; a duplicate has an `a` ahead of the extension.
[[nodiscard]] std::string RecordName(int minute, int second, StreamID id, bool duplicate);

// Minute and second of a recording's name are at most 5999: from here on a file is no recording.
inline constexpr std::uint32_t kNameNumberLimit = 6000;
// Reads the number that a name begins with; false unless it is followed by `-`. Numbers beyond the
// range become the greatest one.
[[nodiscard]] bool ReadNameNumber(std::string_view name, std::uint32_t& number);

// The eight digits behind the first five characters, whatever stands around them; false when they
// aren't hexadecimal.
[[nodiscard]] bool ReadNameId(std::string_view name, StreamID& id);

// The id in a recording's name: eight hexadecimal digits behind the first `-` of the whole path; 0
// if there are none.
[[nodiscard]] StreamID FileNameKey(std::string_view path);

// Index and metadata files: ".psi" or ".psm" at the first dot of the name.
[[nodiscard]] bool IsCompanionName(std::string_view name);
// Those, media files and what else ends in ".ps" and at most one more character.
[[nodiscard]] bool IsMediaOrCompanionName(std::string_view name);

// The whole of `text` as an unsigned decimal number; false, with `value` as it was, when it isn't
// one.
[[nodiscard]] bool ReadDecimal(std::string_view text, std::uint32_t& value);

}  // namespace qv::kelvo
