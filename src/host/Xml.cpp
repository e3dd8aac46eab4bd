#include "host/Xml.h"

#include <array>
#include <charconv>
#include <limits>
#include <utility>

#include "host/Utf8.h"
#include "host/XmlScan.h"

namespace qvsvr::kelvo {

namespace {

// Far above what a configuration of thousands of cameras needs. The library looks through the
// attributes before each one that it adds, and takes some hundred bytes for each node.
constexpr std::size_t kMostBytes = std::size_t{64} << 20;
constexpr std::size_t kMostAttributes = 1024;
constexpr std::size_t kMostPairs = 32'000'000;
constexpr std::size_t kMostItems = 1'000'000;

// A file holds what a message brought beside the rest. No byte of a message takes more than six
// when it is printed: &quot;, &#x0A;.
constexpr std::size_t kFileBytes = 8;
constexpr std::size_t kFileOther = 2;

struct Decimal {
  bool found = false;
  bool negative = false;
  std::uint64_t magnitude = 0;  // saturated
};

Decimal ParseDecimal(const char* text) {
  constexpr std::uint64_t kSaturated = std::numeric_limits<std::uint64_t>::max();
  Decimal number;
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  if (*text == '+' || *text == '-') number.negative = *text++ == '-';
  for (; *text >= '0' && *text <= '9'; ++text) {
    const auto digit = static_cast<std::uint64_t>(*text - '0');
    number.found = true;
    number.magnitude =
        number.magnitude > (kSaturated - digit) / 10 ? kSaturated : number.magnitude * 10 + digit;
  }
  return number;
}

}  // namespace

namespace {

// Takes the elements out of a text that they are views of, in their order.
void TakeOut(const std::vector<std::string_view>& elements, std::string& text,
             std::vector<std::string>& taken) {
  if (elements.empty()) return;
  std::string rest;
  const char* from = text.data();
  for (const std::string_view element : elements) {
    rest.append(from, element.data());
    taken.emplace_back(element);
    from = element.data() + element.size();
  }
  rest.append(from);
  text = std::move(rest);
}

}  // namespace

int XmlDocument::Check(std::string_view text, Source source, std::string& decoded) {
  const std::size_t more = source == Source::File ? kFileOther : 1;
  if (text.size() > kMostBytes * (source == Source::File ? kFileBytes : 1)) return kErrorTooLarge;
  decoded = DecodeXml(text);
  std::vector<std::string_view> apart, kept;
  bool rootEnded = false;
  const auto visit = [&](int level, std::string_view name, std::string_view element) {
    if (level == 2 && name == nameAside) apart.push_back(element);
    if (level != 1) return;
    if (name == kRootName && !std::exchange(rootEnded, true)) kept = apart;
    apart.clear();
  };
  XmlExtent found;
  switch (ScanXml(decoded,
                  {maxParseDepth, more * kMostAttributes, more * kMostPairs, more * kMostItems},
                  found, nameAside.empty() ? ElementVisitor{} : visit)) {
    case XmlVerdict::Parsable:
      TakeOut(kept, decoded, aside);
      return 0;
    case XmlVerdict::TooDeep:
      return kErrorNestedTooDeeply;
    case XmlVerdict::TooManyAttributes:
      return kErrorTooManyAttributes;
    case XmlVerdict::TooLarge:
      return kErrorTooLarge;
    case XmlVerdict::Malformed:
      break;
  }
  return kErrorMalformed;
}

bool XmlDocument::ParseFrom(Source source, std::string_view text) {
  Clear();
  ClearError();
  aside.clear();
  std::string decoded;
  ownError = Check(text, source, decoded);
  if (ownError == 0) TiXmlDocument::Parse(decoded.c_str(), nullptr, TIXML_ENCODING_UTF8);
  return !Error();
}

bool XmlDocument::ParseText(std::string_view text) {
  return ParseFrom(Source::Message, text);
}

const char* XmlDocument::ErrorDesc() const {
  switch (ownError) {
    case kErrorNestedTooDeeply:
      return "Elements nested too deeply (exceeds the configured maximum parse depth).";
    case kErrorTooManyAttributes:
      return "Too many attributes.";
    case kErrorTooLarge:
      return "Document too large.";
    case kErrorMalformed:
      return "Not well-formed.";
    default:
      return ownError != 0 ? ownText.c_str() : TiXmlDocument::ErrorDesc();
  }
}

TiXmlElement* BeginXml(TiXmlDocument& document) {
  document.LinkEndChild(new TiXmlDeclaration("", "", ""));
  auto* root = new TiXmlElement(kRootName);
  document.LinkEndChild(root);
  return root;
}

std::string PrintXml(const TiXmlNode& node, const char* lineBreak) {
  TiXmlPrinter printer;
  printer.SetIndent("");
  printer.SetLineBreak(lineBreak);
  node.Accept(&printer);
  // Names that the system gave may be of another encoding.
  return IsUtf8(printer.Str()) ? printer.Str() : ToUtf8(printer.Str());
}

TiXmlElement ParseElement(std::string_view text) {
  TiXmlElement element("");
  element.Parse(std::string(text).c_str(), nullptr, TIXML_ENCODING_UTF8);
  return element;
}

TiXmlElement ParseTag(std::string_view text) {
  char quote = '\0';
  std::size_t end = 0;
  for (; end < text.size() && (quote != '\0' || text[end] != '>'); ++end) {
    const char letter = text[end];
    if (letter == quote) {
      quote = '\0';
    } else if (quote == '\0' && (letter == '"' || letter == '\'')) {
      quote = letter;
    }
  }
  if (end != 0 && text[end - 1] == '/') --end;
  return ParseElement(std::string(text.substr(0, end)) + "/>");
}

void ForEachElement(
    const std::string& text,
    const std::function<void(int level, std::string_view name, std::string_view element)>& visit) {
  constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
  XmlExtent found;
  (void)ScanXml(text, {std::numeric_limits<int>::max(), kAny, kAny, kAny}, found, visit);
}

void SetDouble(TiXmlElement& element, const char* name, double value) {
  constexpr int kDigits = 6;
  std::array<char, 32> text;
  const auto end =
      std::to_chars(text.begin(), text.end(), value, std::chars_format::general, kDigits);
  element.SetAttribute(name, std::string(text.begin(), end.ptr));
}

bool ReadInt(const TiXmlElement& element, const char* name, int& value) {
  return ExtractInt(element, name, value);
}

bool ExtractInt(const TiXmlElement& element, const char* name, std::int32_t& value) {
  const Decimal number = ParseDecimal(ReadText(element, name));
  constexpr std::uint64_t kMax = std::numeric_limits<std::int32_t>::max();
  if (!number.found || number.magnitude > kMax + (number.negative ? 1 : 0)) return false;
  const auto magnitude = static_cast<std::int64_t>(number.magnitude);
  value = static_cast<std::int32_t>(number.negative ? -magnitude : magnitude);
  return true;
}

bool ExtractUnsigned(const TiXmlElement& element, const char* name, std::uint32_t& value) {
  const Decimal number = ParseDecimal(ReadText(element, name));
  if (!number.found || number.magnitude > std::numeric_limits<std::uint32_t>::max()) return false;
  const auto magnitude = static_cast<std::uint32_t>(number.magnitude);
  value = number.negative ? 0U - magnitude : magnitude;
  return true;
}

const char* ReadText(const TiXmlElement& element, const char* name) {
  const char* text = element.Attribute(name);
  return text == nullptr ? "" : text;
}

}  // namespace qvsvr::kelvo
