#include "host/XmlScan.h"

#include <tinyxml.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace qvsvr::kelvo {

namespace {

// The library's own tokenizers, so that both walks read the same bytes as the same thing.
class Tokens : public TiXmlBase {
 public:
  using TiXmlBase::IsAlpha;
  using TiXmlBase::IsWhiteSpace;
  using TiXmlBase::ReadName;
  using TiXmlBase::ReadText;
  using TiXmlBase::SkipWhiteSpace;
  using TiXmlBase::StringEqual;
};

bool AtEnd(const char* p) {
  return p == nullptr || *p == '\0';
}

const char* EndOf(const char* p) {
  return p + std::strlen(p);
}

// A null position means that the library gives up there, as in the library itself.
class Scan {
 public:
  Scan(const char* start, const XmlLimits& given) : p(start), limits(given) {}

  XmlVerdict Run() {
    if (std::strncmp(p, "\xEF\xBB\xBF", 3) == 0) encoding = TIXML_ENCODING_UTF8;
    p = Tokens::SkipWhiteSpace(p, encoding);
    while (!AtEnd(p) && verdict == XmlVerdict::Harmless) {
      if (open.empty()) {
        if (*p != '<') break;
        Markup();
      } else {
        Content();
      }
      p = Tokens::SkipWhiteSpace(p, encoding);
    }
    return verdict;
  }

 private:
  void Stop(XmlVerdict why) {
    verdict = why;
    p = nullptr;
  }

  void CountItem() {
    if (++items > limits.items) Stop(XmlVerdict::TooLarge);
  }

  // One text, child or end tag inside the innermost open element.
  void Content() {
    if (*p != '<') {
      CountItem();
      if (p == nullptr) return;
      p = Tokens::ReadText(p, &scratch, true, "<", false, encoding);
      if (p != nullptr) --p;
    } else if (p[1] == '/') {
      EndTag();
    } else if (static_cast<int>(open.size()) >= limits.depth) {
      Stop(XmlVerdict::TooDeep);
    } else {
      Markup();
    }
  }

  void EndTag() {
    const std::string_view name = open.back();
    const char* nameAt = p + 2;
    const bool matches =
        std::strncmp(nameAt, name.data(), name.size()) == 0 && nameAt[name.size()] == '>';
    p = matches ? nameAt + name.size() + 1 : nullptr;
    open.pop_back();
  }

  void Markup() {
    CountItem();
    if (p == nullptr) return;
    if (Tokens::StringEqual(p, "<?xml", true, encoding)) {
      Declaration();
    } else if (Tokens::StringEqual(p, "<!--", false, encoding)) {
      SkipPast(p + 4, "-->");
    } else if (Tokens::StringEqual(p, "<![CDATA[", false, encoding)) {
      SkipPast(p + 9, "]]>");
    } else if (p[1] != '!' &&
               (Tokens::IsAlpha(static_cast<unsigned char>(p[1]), encoding) != 0 || p[1] == '_')) {
      StartTag();
    } else {
      SkipPast(p + 1, ">");
    }
  }

  void SkipPast(const char* from, const char* end) {
    const char* found = std::strstr(from, end);
    p = found == nullptr ? EndOf(from) : found + std::strlen(end);
  }

  void StartTag() {
    const char* name = p + 1;
    p = Tokens::ReadName(name, &scratch, encoding);
    if (AtEnd(p)) return;
    const std::string_view nameView(name, static_cast<std::size_t>(p - name));
    for (std::size_t attributes = 0;;) {
      p = Tokens::SkipWhiteSpace(p, encoding);
      if (AtEnd(p)) return;
      if (*p == '/') {
        p = p[1] == '>' ? p + 2 : nullptr;
        return;
      }
      if (*p == '>') {
        ++p;
        open.push_back(nameView);
        return;
      }
      CountItem();
      if (p == nullptr) return;
      pairs += attributes;
      if (++attributes > limits.attributes || pairs > limits.pairs) {
        return Stop(XmlVerdict::TooManyAttributes);
      }
      p = Attribute(p, scratch);
    }
  }

  // Returns the position behind the attribute that begins at `at`; `value` gets its text.
  const char* Attribute(const char* at, std::string& value) {
    value.clear();
    at = Tokens::ReadName(at, &nameScratch, encoding);
    if (AtEnd(at)) return nullptr;
    at = Tokens::SkipWhiteSpace(at, encoding);
    if (AtEnd(at) || *at != '=') return nullptr;
    at = Tokens::SkipWhiteSpace(at + 1, encoding);
    if (AtEnd(at)) return nullptr;
    if (*at == '\'' || *at == '"') {
      const char quote[] = {*at, '\0'};
      return Tokens::ReadText(at + 1, &value, false, quote, false, encoding);
    }
    while (!AtEnd(at) && !Tokens::IsWhiteSpace(*at) && *at != '/' && *at != '>') {
      if (*at == '\'' || *at == '"') return nullptr;
      value += *at++;
    }
    return at;
  }

  void Declaration() {
    std::string named;
    const char* at = p + std::strlen("<?xml");
    while (!AtEnd(at)) {
      if (*at == '>') {
        p = at + 1;
        if (open.empty() && encoding == TIXML_ENCODING_UNKNOWN) ChooseEncoding(named.c_str());
        return;
      }
      at = Tokens::SkipWhiteSpace(at, encoding);
      if (AtEnd(at)) break;
      if (Tokens::StringEqual(at, "encoding", true, encoding)) {
        at = Attribute(at, named);
      } else if (Tokens::StringEqual(at, "version", true, encoding) ||
                 Tokens::StringEqual(at, "standalone", true, encoding)) {
        at = Attribute(at, scratch);
      } else {
        while (!AtEnd(at) && *at != '>' && !Tokens::IsWhiteSpace(*at)) ++at;
      }
    }
    Stop(XmlVerdict::CutDeclaration);
  }

  void ChooseEncoding(const char* named) {
    const auto is = [named](const char* name) {
      return Tokens::StringEqual(named, name, true, TIXML_ENCODING_UNKNOWN);
    };
    encoding =
        *named == '\0' || is("UTF-8") || is("UTF8") ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
  }

  const char* p;
  const XmlLimits limits;
  XmlVerdict verdict = XmlVerdict::Harmless;
  TiXmlEncoding encoding = TIXML_ENCODING_UNKNOWN;
  std::vector<std::string_view> open;  // names of the elements around `p`, outermost first
  std::size_t items = 0;
  std::size_t pairs = 0;
  std::string scratch;
  std::string nameScratch;
};

}  // namespace

XmlVerdict ScanXml(const char* text, const XmlLimits& limits) {
  return Scan(text, limits).Run();
}

}  // namespace qvsvr::kelvo
