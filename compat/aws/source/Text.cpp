#include "Text.h"

#include <boost/beast/core/detail/base64.hpp>
#include <boost/uuid/detail/md5.hpp>
#include <boost/uuid/uuid_generators.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdlib>

namespace Aws::Compat {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

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
  namespace base64 = boost::beast::detail::base64;
  boost::uuids::detail::md5 sum;
  boost::uuids::detail::md5::digest_type digest;
  sum.process_bytes(text.data(), text.size());
  sum.get_digest(digest);
  std::string out(base64::encoded_size(sizeof(digest)), '\0');
  out.resize(base64::encode(out.data(), &digest, sizeof(digest)));
  return out;
}

std::string NewUuid() {
  std::string text = to_string(boost::uuids::random_generator()());
  for (char& letter : text) {
    if (letter >= 'a' && letter <= 'f') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return text;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

}  // namespace Aws::Compat
