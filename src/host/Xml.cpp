#include "host/Xml.h"

#include <array>
#include <charconv>
#include <limits>

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

int XmlDocument::Check(std::string_view text, Source source, std::string& decoded) const {
  const std::size_t more = source == Source::File ? kFileOther : 1;
  if (text.size() > kMostBytes * (source == Source::File ? kFileBytes : 1)) return kErrorTooLarge;
  decoded = DecodeXml(text);
  XmlExtent found;
  switch (ScanXml(decoded,
                  {maxParseDepth, more * kMostAttributes, more * kMostPairs, more * kMostItems},
                  found)) {
    case XmlVerdict::Parsable:
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
