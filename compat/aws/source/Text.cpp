#include "Text.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

namespace Aws::Compat {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

using Md5State = std::array<std::uint32_t, 4>;

std::uint32_t RotateLeft(std::uint32_t value, unsigned bits) {
  return value << bits | value >> (32 - bits);
}

std::uint32_t Md5Constant(unsigned step) {
  return static_cast<std::uint32_t>(std::floor(std::fabs(std::sin(step + 1.0)) * 4294967296.0));
}

void Md5Block(Md5State& state, const unsigned char* block) {
  constexpr unsigned kTurns[4][4] = {
      {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  std::uint32_t words[16];
  for (unsigned i = 0; i < 16; ++i) {
    words[i] = 0;
    for (unsigned byte = 4; byte-- > 0;) words[i] = words[i] << 8 | block[i * 4 + byte];
  }
  auto [a, b, c, d] = state;
  for (unsigned step = 0; step < 64; ++step) {
    std::uint32_t mixed = 0;
    unsigned word = 0;
    switch (step / 16) {
      case 0:
        mixed = (b & c) | (~b & d);
        word = step;
        break;
      case 1:
        mixed = (d & b) | (~d & c);
        word = (5 * step + 1) % 16;
        break;
      case 2:
        mixed = b ^ c ^ d;
        word = (3 * step + 5) % 16;
        break;
      default:
        mixed = c ^ (b | ~d);
        word = 7 * step % 16;
    }
    const std::uint32_t turned =
        RotateLeft(a + mixed + Md5Constant(step) + words[word], kTurns[step / 16][step % 4]);
    a = d;
    d = c;
    c = b;
    b += turned;
  }
  state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

std::string Md5(std::string_view text) {
  std::string padded(text);
  padded += '\x80';
  while (padded.size() % 64 != 56) padded += '\0';
  for (unsigned i = 0; i < 8; ++i) {
    padded += static_cast<char>(std::uint64_t{text.size()} * 8 >> (8 * i) & 0xFF);
  }
  Md5State state{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  for (std::size_t at = 0; at < padded.size(); at += 64) {
    unsigned char block[64];
    std::memcpy(block, padded.data() + at, sizeof(block));
    Md5Block(state, block);
  }
  std::string digest;
  for (const std::uint32_t word : state) {
    for (unsigned i = 0; i < 4; ++i) digest += static_cast<char>(word >> (8 * i) & 0xFF);
  }
  return digest;
}

std::string Base64(std::string_view bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
    }
    for (unsigned i = 0; i < 4; ++i) {
      out += at + i > bytes.size() ? '=' : kLetters[group >> (18 - 6 * i) & 0x3F];
    }
  }
  return out;
}

}  // namespace

std::string PercentEncode(std::string_view text, bool keepSlash) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string out;
  for (const char letter : text) {
    if (kPlain.find(letter) != std::string_view::npos || (keepSlash && letter == '/')) {
      out += letter;
    } else {
      const unsigned value = static_cast<unsigned char>(letter);
      out += {'%', kHex[value >> 4], kHex[value & 0xF]};
    }
  }
  return out;
}

std::string Md5Base64(std::string_view text) {
  return Base64(Md5(text));
}

std::string NewUuid() {
  std::random_device random;
  std::string out;
  for (unsigned i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) out += '-';
    unsigned digit = random() & 0xF;
    if (i == 12) digit = 4;
    if (i == 16) digit = 8 | (digit & 3);
    out += kHex[digit];
  }
  return out;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

}  // namespace Aws::Compat
