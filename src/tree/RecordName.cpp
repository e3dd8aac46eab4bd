#include "tree/RecordName.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>

namespace qv::kelvo {
namespace {

constexpr std::size_t kStemLength = 13;  // "MMSS-CPPPDDII"
constexpr std::size_t kIdOffset = 5;
constexpr std::size_t kIdLength = 8;
constexpr std::size_t kExtensionLength = 3;
constexpr char kDuplicateSuffix[] = "a";

bool ReadNumber(std::string_view text, int base, std::uint32_t& value) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return false;
  value = number;
  return true;
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

ParsedName ParseName(std::string_view name) {
  ParsedName parsed;
  parsed.name = name;
  if (name.size() < kStemLength + kExtensionLength) return parsed;
  std::uint32_t number = 0;
  StreamID id = 0;
  if (!std::all_of(name.begin(), name.begin() + 4, IsDigit) || name[4] != '-' ||
      !ReadDecimal(name.substr(0, 4), number) || !ReadNameId(name, id)) {
    return parsed;
  }
  const std::string_view extension = name.substr(name.size() - kExtensionLength);
  if (extension[0] != '.' || Lower(extension[1]) != 'p' || Lower(extension[2]) != 's') {
    return parsed;
  }
  parsed.minute = static_cast<std::uint8_t>(number / 100);
  parsed.second = static_cast<std::uint8_t>(number % 100);
  parsed.id = id;
  parsed.extension = extension;
  parsed.valid = true;
  parsed.suffix = name.substr(kStemLength, name.size() - kStemLength - kExtensionLength);
  parsed.isDuplicate = parsed.suffix == kDuplicateSuffix;
  return parsed;
}

std::string RecordName(int minute, int second, StreamID id, bool duplicate) {
  char name[40];
  std::snprintf(name, sizeof name, "%02d%02d-%08lX%s.ps", minute, second,
                static_cast<unsigned long>(id), duplicate ? kDuplicateSuffix : "");
  return name;
}

bool ReadNameNumber(std::string_view name, std::uint32_t& number) {
  const char* end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data(), end, number);
  if (error == std::errc::result_out_of_range) {
    number = std::numeric_limits<std::uint32_t>::max();
  } else if (error != std::errc{}) {
    return false;
  }
  return stop != end && *stop == '-';
}

bool ReadNameId(std::string_view name, StreamID& id) {
  return name.size() >= kIdOffset + kIdLength &&
         ReadNumber(name.substr(kIdOffset, kIdLength), 16, id);
}

StreamID FileNameKey(std::string_view path) {
  StreamID id = 0;
  const std::size_t dash = path.find('-');
  if (dash != std::string_view::npos) (void)ReadNumber(path.substr(dash + 1, kIdLength), 16, id);
  return id;
}

bool IsCompanionName(std::string_view name) {
  const std::string_view rest = name.substr(std::min(name.find('.'), name.size()));
  return rest.starts_with(".psi") || rest.starts_with(".psm");
}

bool IsMediaOrCompanionName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  const std::string_view extension = name.substr(dot + 1);
  return (extension.size() == 2 || extension.size() == 3) && Lower(extension[0]) == 'p' &&
         Lower(extension[1]) == 's';
}

bool ReadDecimal(std::string_view text, std::uint32_t& value) {
  return ReadNumber(text, 10, value);
}

}  // namespace qv::kelvo
