#include "platform/Native.h"

#include <boost/filesystem/operations.hpp>
#include <cstddef>

namespace qv::kelvo {
namespace {

char Folded(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The position behind the character at `at`, with the bytes that continue it.
std::size_t NextCharacter(std::string_view text, std::size_t at) {
  ++at;
  while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
  return at;
}

}  // namespace

bool MatchesPattern(std::string_view name, std::string_view pattern) {
  std::size_t n = 0;
  std::size_t p = 0;
  // Only the last star is ever widened: an earlier one has already found its shortest match.
  std::size_t afterStar = std::string_view::npos;
  std::size_t starEnd = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      afterStar = ++p;
      starEnd = n;
    } else if (p < pattern.size() && pattern[p] == '?') {
      ++p;
      n = NextCharacter(name, n);
    } else if (p < pattern.size() && Folded(pattern[p]) == Folded(name[n])) {
      ++p;
      ++n;
    } else if (afterStar != std::string_view::npos) {
      p = afterStar;
      starEnd = NextCharacter(name, starEnd);
      n = starEnd;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

std::string MeasureSpace(const std::string& path, DriveSpace& space) {
  boost::system::error_code error;
  const boost::filesystem::space_info info = boost::filesystem::space(NativePath(path), error);
  if (error) return error.message();
  space = {info.capacity, info.free, info.available};
  return {};
}

}  // namespace qv::kelvo
