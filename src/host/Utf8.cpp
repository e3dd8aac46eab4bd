#include "host/Utf8.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace qvsvr::kelvo {
namespace {

// 0x80 to 0x9F in Windows-1252; what it leaves open stays a control character.
constexpr std::array<std::uint16_t, 32> kHigh = {
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

unsigned Byte(std::string_view bytes, std::size_t at) {
  return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

// Length of the character that begins at `at`; 0 when none does.
std::size_t CharacterAt(std::string_view bytes, std::size_t at) {
  const unsigned lead = Byte(bytes, at);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  const unsigned second = Byte(bytes, at + 1);
  const unsigned least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (second < least || second > most) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((Byte(bytes, at + i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

void AppendLatin(unsigned byte, std::string& text) {
  const unsigned code = byte >= 0x80 && byte < 0xA0 ? kHigh[byte - 0x80] : byte;
  const auto tail = [&](unsigned shift) {
    return static_cast<char>(0x80 | ((code >> shift) & 0x3F));
  };
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += {static_cast<char>(0xC0 | (code >> 6)), tail(0)};
  } else {
    text += {static_cast<char>(0xE0 | (code >> 12)), tail(6), tail(0)};
  }
}

}  // namespace

bool IsUtf8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t length = CharacterAt(bytes, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string ToUtf8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t length = CharacterAt(bytes, at);
    if (length == 0) {
      AppendLatin(Byte(bytes, at++), text);
    } else {
      text.append(bytes, at, length);
      at += length;
    }
  }
  return text;
}

std::string Utf8FromLatin(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) AppendLatin(static_cast<unsigned char>(c), text);
  return text;
}

}  // namespace qvsvr::kelvo
