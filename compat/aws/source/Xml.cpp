#include "Xml.h"

#include <charconv>
#include <cstdint>

namespace Aws::Compat {

namespace {

constexpr int kMaxDepth = 16;
constexpr std::size_t kMaxElements = 100'000;
constexpr std::string_view kSpace = " \t\r\n";

void AppendUtf8(std::string& out, std::uint32_t code) {
  const auto byte = [&out](std::uint32_t value) { out += static_cast<char>(value); };
  if (code < 0x80) {
    byte(code);
  } else if (code < 0x800) {
    byte(0xC0 | code >> 6);
    byte(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    byte(0xE0 | code >> 12);
    byte(0x80 | (code >> 6 & 0x3F));
    byte(0x80 | (code & 0x3F));
  } else {
    byte(0xF0 | code >> 18);
    byte(0x80 | (code >> 12 & 0x3F));
    byte(0x80 | (code >> 6 & 0x3F));
    byte(0x80 | (code & 0x3F));
  }
}

// The text of an entity's name, without `&` and `;`.
bool AppendEntity(std::string& out, std::string_view name) {
  struct Named {
    std::string_view name;
    char value;
  };
  constexpr Named kNamed[] = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
  for (const Named& entity : kNamed) {
    if (entity.name != name) continue;
    out += entity.value;
    return true;
  }
  if (name.size() < 2 || name[0] != '#') return false;
  const bool hex = name[1] == 'x';
  name.remove_prefix(hex ? 2 : 1);
  std::uint32_t code = 0;
  const auto [end, error] =
      std::from_chars(name.data(), name.data() + name.size(), code, hex ? 16 : 10);
  if (error != std::errc() || end != name.data() + name.size()) return false;
  if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return false;
  AppendUtf8(out, code);
  return true;
}

class Parser {
 public:
  explicit Parser(std::string_view document) : rest(document) {}

  bool Document(XmlElement& root) {
    if (rest.starts_with("\xEF\xBB\xBF")) rest.remove_prefix(3);
    if (!SkipAround()) return false;
    if (!Take("<") || !Element(root, 1)) return false;
    return SkipAround() && rest.empty();
  }

 private:
  bool Take(std::string_view expected) {
    if (!rest.starts_with(expected)) return false;
    rest.remove_prefix(expected.size());
    return true;
  }

  void SkipSpace() {
    const std::size_t end = rest.find_first_not_of(kSpace);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
  }

  // Text up to `end`, which is consumed, too.
  bool Until(std::string_view end, std::string_view& text) {
    const std::size_t place = rest.find(end);
    if (place == std::string_view::npos) return false;
    text = rest.substr(0, place);
    rest.remove_prefix(place + end.size());
    return true;
  }

  // Comments, processing instructions and space outside the root.
  bool SkipAround() {
    std::string_view skipped;
    for (;;) {
      SkipSpace();
      if (Take("<?")) {
        if (!Until("?>", skipped)) return false;
      } else if (Take("<!--")) {
        if (!Until("-->", skipped)) return false;
      } else {
        return true;
      }
    }
  }

  bool Name(std::string_view& name) {
    const std::size_t end = rest.find_first_of(" \t\r\n/>=<&\"'");
    if (end == 0 || end == std::string_view::npos) return false;
    name = rest.substr(0, end);
    rest.remove_prefix(end);
    return true;
  }

  // Up to the end of a start tag; the attributes are of no interest.
  bool Attributes(bool& empty) {
    for (;;) {
      SkipSpace();
      empty = rest.starts_with("/>");
      if (empty || rest.starts_with(">")) {
        rest.remove_prefix(empty ? 2 : 1);
        return true;
      }
      std::string_view skipped;
      if (!Name(skipped)) return false;
      SkipSpace();
      if (!Take("=")) return false;
      SkipSpace();
      const std::string_view quote = rest.substr(0, 1);
      if (quote != "\"" && quote != "'") return false;
      rest.remove_prefix(1);
      if (!Until(quote, skipped)) return false;
    }
  }

  // One element whose `<` was consumed.
  bool Element(XmlElement& element, int depth) {
    std::string_view name;
    bool empty = false;
    if (depth > kMaxDepth || ++elements > kMaxElements) return false;
    if (!Name(name) || name[0] == '!' || !Attributes(empty)) return false;
    element.name = name.substr(name.find(':') == std::string_view::npos ? 0 : name.find(':') + 1);
    return empty || Content(element, name, depth);
  }

  bool Content(XmlElement& element, std::string_view name, int depth) {
    std::string_view part;
    for (;;) {
      const std::size_t end = rest.find_first_of("<&");
      if (end == std::string_view::npos) return false;
      element.text += rest.substr(0, end);
      rest.remove_prefix(end);
      if (Take("&")) {
        if (!Until(";", part) || !AppendEntity(element.text, part)) return false;
      } else if (Take("</")) {
        if (!Take(name)) return false;
        SkipSpace();
        return Take(">");
      } else if (Take("<!--")) {
        if (!Until("-->", part)) return false;
      } else if (Take("<![CDATA[")) {
        if (!Until("]]>", part)) return false;
        element.text += part;
      } else if (Take("<?")) {
        if (!Until("?>", part)) return false;
      } else {
        rest.remove_prefix(1);
        if (!Element(element.children.emplace_back(), depth + 1)) return false;
      }
    }
  }

  std::string_view rest;
  std::size_t elements = 0;
};

}  // namespace

std::string XmlElement::ChildText(std::string_view child) const {
  for (const XmlElement& element : children) {
    if (element.name == child) return element.text;
  }
  return {};
}

bool ParseXml(std::string_view text, XmlElement& root) {
  root = {};
  return Parser(text).Document(root);
}

std::string EscapeXml(std::string_view text) {
  std::string out;
  for (const char letter : text) {
    switch (letter) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\r':
        out += "&#13;";
        break;
      case '\n':
        out += "&#10;";
        break;
      case '\t':
        out += "&#9;";
        break;
      default:
        out += letter;
    }
  }
  return out;
}

}  // namespace Aws::Compat
