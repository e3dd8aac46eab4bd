#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Aws::Compat {

// Percent-encodes all but unreserved characters, and `/` if it is kept.
[[nodiscard]] std::string PercentEncode(std::string_view text, bool keepSlash);

// The MD5 digest in base64, as Content-MD5 has it.
[[nodiscard]] std::string Md5Base64(std::string_view text);

// The variable's value, "" if it isn't set.
[[nodiscard]] std::string Environment(const char* name);

// An element of a service's reply: names without prefix, text with its entities resolved.
struct XmlElement {
  std::string name;
  std::string text;
  std::vector<XmlElement> children;

  [[nodiscard]] std::string ChildText(std::string_view child) const;  // "" if there is none
};

// Reads one document. False for anything that isn't well-formed as far as replies need it, for a
// document type, and for more than a reply can hold.
bool ParseXml(std::string_view text, XmlElement& root);

// Text as it stands in an element.
[[nodiscard]] std::string EscapeXml(std::string_view text);

}  // namespace Aws::Compat
