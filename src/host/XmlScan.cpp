#include "host/XmlScan.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "host/Utf8.h"

namespace qvsvr::kelvo {

namespace {

constexpr TiXmlEncoding kUtf8 = TIXML_ENCODING_UTF8;

// The library's own tokenizers, so that both walks read the same bytes as the same thing.
class Tokens : public TiXmlBase {
 public:
  using TiXmlBase::IsAlpha;
  using TiXmlBase::IsWhiteSpace;
  using TiXmlBase::ReadName;
  using TiXmlBase::SkipWhiteSpace;
  using TiXmlBase::StringEqual;
};

bool AtEnd(const char* p) {
  return p == nullptr || *p == '\0';
}

const char* Skip(const char* p) {
  return Tokens::SkipWhiteSpace(p, kUtf8);
}

bool Is(const char* p, const char* token) {
  return Tokens::StringEqual(p, token, false, kUtf8);
}

bool IsWord(const char* p, const char* word) {
  return Tokens::StringEqual(p, word, true, kUtf8);
}

// The position behind the character reference at `p`; null when it names no character.
const char* PastReference(const char* p) {
  constexpr unsigned long kLast = 0x10FFFF;
  constexpr int kMostDigits = 7;
  const bool hex = p[2] == 'x';
  const char* const digits = p + (hex ? 3 : 2);
  const char* end = digits;
  unsigned long code = 0;
  for (; end - digits <= kMostDigits; ++end) {
    const char c = static_cast<char>(*end | 0x20);
    const bool letter = hex && c >= 'a' && c <= 'f';
    if (!letter && (*end < '0' || *end > '9')) break;
    code = code * (hex ? 16 : 10) + static_cast<unsigned long>(letter ? c - 'a' + 10 : *end - '0');
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return *end == ';' && end != digits && code != 0 && code <= kLast && !surrogate ? end + 1
                                                                                  : nullptr;
}

// The position of the terminator of a text that begins at `p`; null when there is none, or when
// there is a reference ahead of it that names no character.
const char* EndOfText(const char* p, char terminator) {
  const char* const end = std::strchr(p, terminator);
  while (end != nullptr && p != nullptr) {
    const char* const mark =
        static_cast<const char*>(std::memchr(p, '&', static_cast<std::size_t>(end - p)));
    if (mark == nullptr) return end;
    p = mark[1] == '#' ? PastReference(mark) : mark + 1;
  }
  return nullptr;
}

// One walk. `p` stands ahead of what comes next; null means that the text is malformed there. What
// is open is kept as a list, so that depth costs memory and not stack.
class Scan {
 public:
  Scan(const char* start, const XmlExtent& given, XmlExtent& extent, const ElementVisitor& visitor)
      : p(start), limits(given), found(extent), visit(visitor) {}

  XmlVerdict Run() {
    found = {};
    p = Skip(p);
    while (!AtEnd(p)) {
      if (open.empty() && *p != '<') return verdict;  // where the library ends, too
      if (*p != '<') {
        Text();
      } else if (!open.empty() && p[1] == '/') {
        EndTag();
      } else {
        Markup();
      }
      if (p == nullptr) return verdict == XmlVerdict::Parsable ? XmlVerdict::Malformed : verdict;
      p = Skip(p);
    }
    return open.empty() ? verdict : XmlVerdict::Malformed;
  }

 private:
  void Refuse(XmlVerdict why) {
    verdict = why;
    p = nullptr;
  }
  // False, with the verdict given, when there are too many.
  bool CountItem() {
    if (++found.items > limits.items) Refuse(XmlVerdict::TooLarge);
    return p != nullptr;
  }

  void Text() {
    if (CountItem()) p = EndOfText(p, '<');
  }

  void EndTag() {
    const std::string_view name = open.back().name;
    const bool matches = std::strncmp(p + 2, name.data(), name.size()) == 0;
    p = matches ? Skip(p + 2 + name.size()) : nullptr;
    p = !AtEnd(p) && *p == '>' ? p + 1 : nullptr;
    EndElement();
  }

  void EndElement() {
    const auto [begin, name] = open.back();
    if (visit && p != nullptr) {
      visit(static_cast<int>(open.size()), name, {begin, static_cast<std::size_t>(p - begin)});
    }
    open.pop_back();
  }

  void Markup() {
    if (static_cast<int>(open.size()) >= limits.depth) {
      Refuse(XmlVerdict::TooDeep);
      return;
    }
    if (!CountItem()) return;
    if (IsWord(p, "<?xml")) {
      Declaration();
    } else if (Is(p, "<!--")) {
      SkipPast(p + 4, "-->");
    } else if (Is(p, "<![CDATA[")) {
      SkipPast(p + 9, "]]>");
    } else if (p[1] != '!' &&
               (Tokens::IsAlpha(static_cast<unsigned char>(p[1]), kUtf8) != 0 || p[1] == '_')) {
      StartTag();
    } else {
      SkipPast(p + 1, ">");
    }
  }

  void SkipPast(const char* from, const char* end) {
    p = std::strstr(from, end);
    if (p != nullptr) p += std::strlen(end);
  }

  void StartTag() {
    const char* const begin = p;
    const char* const name = Skip(p + 1);  // a byte order mark counts as a blank
    p = Tokens::ReadName(name, &scratch, kUtf8);
    if (p == nullptr) return;
    open.push_back({begin, {name, static_cast<std::size_t>(p - name)}});
    found.depth = std::max(found.depth, static_cast<int>(open.size()));
    for (attributes.clear();;) {
      p = Skip(p);
      if (AtEnd(p)) {
        p = nullptr;
        return;
      }
      if (*p == '/') {
        p = p[1] == '>' ? p + 2 : nullptr;
        EndElement();
        return;
      }
      if (*p == '>') {
        ++p;
        return;
      }
      if (!CountAttribute(attributes.size())) return;
      p = PastAttribute(p);
      if (p == nullptr) return;
      if (std::ranges::find(attributes, attribute) != attributes.end()) p = nullptr;
      if (p == nullptr) return;
      attributes.push_back(attribute);
    }
  }

  bool CountAttribute(std::size_t earlier) {
    found.pairs += earlier;
    found.attributes = std::max(found.attributes, earlier + 1);
    if (found.attributes > limits.attributes || found.pairs > limits.pairs) {
      Refuse(XmlVerdict::TooManyAttributes);
    }
    return p != nullptr && CountItem();
  }

  // The position behind the attribute that begins at `at`. `attribute` gets its name, `raw` its
  // value as it stands.
  const char* PastAttribute(const char* at) {
    const char* const begun = at;
    at = Tokens::ReadName(at, &scratch, kUtf8);
    attribute = {begun, at == nullptr ? 0 : static_cast<std::size_t>(at - begun)};
    if (at != nullptr) at = Skip(at);
    if (AtEnd(at) || *at != '=') return nullptr;
    at = Skip(at + 1);
    if (AtEnd(at)) return nullptr;
    if (*at == '\'' || *at == '"') {
      const char* const end = EndOfText(at + 1, *at);
      if (end == nullptr) return nullptr;
      raw = {at + 1, static_cast<std::size_t>(end - at - 1)};
      return end + 1;
    }
    const char* const begin = at;
    for (; !AtEnd(at) && !Tokens::IsWhiteSpace(*at) && *at != '/' && *at != '>'; ++at) {
      if (*at == '\'' || *at == '"') return nullptr;
    }
    raw = {begin, static_cast<std::size_t>(at - begin)};
    return at;
  }

  // Not inside an element, and printed without escapes. The one at the beginning was emptied.
  void Declaration() {
    if (!open.empty()) {
      p = nullptr;
      return;
    }
    p += std::strlen("<?xml");
    while (!AtEnd(p) && *p != '>') {
      p = Skip(p);
      if (AtEnd(p)) break;
      if (IsWord(p, "version") || IsWord(p, "standalone")) {
        p = PastAttribute(p);
        if (p != nullptr && raw.find_first_of("\"<>&") != std::string_view::npos) p = nullptr;
      } else if (IsWord(p, "encoding")) {
        p = nullptr;
      } else {
        while (!AtEnd(p) && *p != '>' && !Tokens::IsWhiteSpace(*p)) ++p;
      }
    }
    p = AtEnd(p) ? nullptr : p + 1;
  }

  const char* p;
  const XmlExtent limits;
  XmlExtent& found;
  const ElementVisitor& visit;
  XmlVerdict verdict = XmlVerdict::Parsable;
  struct Element {
    const char* begin;
    std::string_view name;
  };
  std::vector<Element> open;                 // those around `p`, outermost first
  std::vector<std::string_view> attributes;  // names in the tag at `p`
  std::string_view attribute;
  std::string_view raw;
  std::string scratch;
};

// Empties a declaration at the beginning of the text; the encoding that it named, if it did.
std::string TakeEncoding(std::string& text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos || !IsWord(text.c_str() + begin, "<?xml")) return {};
  const std::size_t end = text.find('>', begin);
  const std::size_t name = begin + std::strlen("<?xml");
  if (end == std::string::npos || (text[name] != '?' && kBlanks.find(text[name]) == kBlanks.npos))
    return {};
  const std::string declaration = text.substr(name, end - name);
  text.replace(name, end - name, " ?");
  const std::size_t quote = declaration.find_first_of("'\"", declaration.find("encoding"));
  if (quote == std::string::npos) return {};
  return declaration.substr(quote + 1, declaration.find(declaration[quote], quote + 1) - quote - 1);
}

// Whether that is Windows-1252 or a part of it that has letters above 127.
bool IsLatin(const std::string& encoding) {
  constexpr const char* kNames[] = {"iso-8859-1", "iso8859-1", "latin1", "windows-1252", "cp1252"};
  return std::ranges::any_of(kNames, [&](const char* name) {
    return encoding.size() == std::strlen(name) && IsWord(encoding.c_str(), name);
  });
}

}  // namespace

std::string DecodeXml(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  text = text.substr(0, text.find('\0'));
  const bool marked = text.starts_with(kMark);
  std::string plain(text.substr(marked ? kMark.size() : 0));
  if (IsLatin(TakeEncoding(plain)) && !marked) return Utf8FromLatin(plain);
  if (!IsUtf8(plain)) return ToUtf8(plain);
  return plain;
}

XmlVerdict ScanXml(const std::string& text, const XmlExtent& limits, XmlExtent& found,
                   const ElementVisitor& visit) {
  return Scan(text.c_str(), limits, found, visit).Run();
}

}  // namespace qvsvr::kelvo
