#include "Text.h"

#include <tinyxml.h>

#include <algorithm>
#include <boost/beast/core/detail/base64.hpp>
#include <boost/uuid/detail/md5.hpp>
#include <cctype>
#include <cstdlib>

namespace Aws::Compat {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";
constexpr int kMaxDepth = 32;
constexpr int kMaxTags = 100'000;

// Whether the text may be parsed: TinyXML goes as deep as its elements, and takes much room for
// each.
bool IsBounded(std::string_view text) {
  int depth = 0;
  int tags = 0;
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    const std::size_t end = text.find('>', at);
    if (text.substr(at).starts_with("<!DOCTYPE")) return false;
    if (text.substr(at).starts_with("</")) {
      --depth;
    } else if (end != std::string_view::npos && text[end - 1] != '/' && text[at + 1] != '?' &&
               text[at + 1] != '!') {
      ++depth;
    }
    if (depth > kMaxDepth || ++tags > kMaxTags) return false;
  }
  return true;
}

XmlElement Taken(const TiXmlElement& element) {
  XmlElement taken;
  taken.name = element.ValueStr();
  taken.name.erase(0, taken.name.find(':') + 1);
  for (const TiXmlNode* child = element.FirstChild(); child != nullptr;
       child = child->NextSibling()) {
    if (const TiXmlText* text = child->ToText()) taken.text += text->ValueStr();
    if (const TiXmlElement* inner = child->ToElement()) taken.children.push_back(Taken(*inner));
  }
  return taken;
}

bool IsBlank(const char* text) {
  return std::all_of(text, text + std::char_traits<char>::length(text),
                     [](unsigned char letter) { return std::isspace(letter) != 0; });
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
  namespace base64 = boost::beast::detail::base64;
  boost::uuids::detail::md5 sum;
  boost::uuids::detail::md5::digest_type digest;
  sum.process_bytes(text.data(), text.size());
  sum.get_digest(digest);
  std::string out(base64::encoded_size(sizeof(digest)), '\0');
  out.resize(base64::encode(out.data(), &digest, sizeof(digest)));
  return out;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

std::string XmlElement::ChildText(std::string_view child) const {
  const auto found = std::find_if(children.begin(), children.end(),
                                  [&](const XmlElement& inner) { return inner.name == child; });
  return found == children.end() ? std::string() : found->text;
}

bool ParseXml(std::string_view text, XmlElement& root) {
  if (!IsBounded(text)) return false;
  const std::string ended(text);
  TiXmlDocument document;
  const char* const rest = document.Parse(ended.c_str(), nullptr, TIXML_ENCODING_UTF8);
  const TiXmlElement* const top = document.RootElement();
  if (document.Error() || top == nullptr || top->NextSiblingElement() != nullptr ||
      (rest != nullptr && !IsBlank(rest))) {
    return false;
  }
  root = Taken(*top);
  return true;
}

std::string EscapeXml(std::string_view text) {
  std::string escaped;
  TiXmlBase::EncodeString(std::string(text), &escaped);
  return escaped;
}

}  // namespace Aws::Compat
