#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Aws::Compat {

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
