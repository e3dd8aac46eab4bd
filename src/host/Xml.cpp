#include "host/Xml.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "host/XmlScan.h"

namespace qvsvr::kelvo {

namespace {

// Far above what a configuration of thousands of cameras needs. The library looks through the
// attributes before each one that it adds, and takes some hundred bytes for each node.
constexpr std::size_t kMaxAttributes = 1024;
constexpr std::size_t kMaxAttributePairs = 32'000'000;
constexpr std::size_t kMaxItems = 1'000'000;
constexpr std::size_t kMaxTextBytes = std::size_t{64} << 20;

// True if the last bytes begin a character of three bytes that isn't complete: the library would
// look for its rest for ever.
bool EndsInsideCharacter(std::string_view text) {
  const std::string_view tail = text.substr(text.size() - std::min<std::size_t>(text.size(), 2));
  return tail.find('\xEF') != std::string_view::npos;
}

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

bool XmlDocument::ParseText(std::string_view text) {
  Clear();
  ClearError();
  ownError = 0;
  text = text.substr(0, text.find('\0'));
  if (text.size() > kMaxTextBytes) {
    ownError = kErrorTooLarge;
    return false;
  }
  if (EndsInsideCharacter(text)) {
    SetError(TIXML_ERROR_PARSING_UNKNOWN, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
    return false;
  }
  // The library may step a few bytes past the end behind a broken multi-byte character.
  std::string padded;
  padded.reserve(text.size() + kXmlPadding);
  padded.append(text).append(kXmlPadding, '\0');

  switch (ScanXml(padded.c_str(), {maxParseDepth, kMaxAttributes, kMaxAttributePairs, kMaxItems})) {
    case XmlVerdict::Harmless:
      Parse(padded.c_str());
      break;
    case XmlVerdict::TooDeep:
      ownError = kErrorNestedTooDeeply;
      break;
    case XmlVerdict::TooManyAttributes:
      ownError = kErrorTooManyAttributes;
      break;
    case XmlVerdict::TooLarge:
      ownError = kErrorTooLarge;
      break;
    case XmlVerdict::CutDeclaration:
      SetError(TIXML_ERROR_PARSING_DECLARATION, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
      break;
  }
  return !Error();
}

const char* XmlDocument::ErrorDesc() const {
  switch (ownError) {
    case kErrorNestedTooDeeply:
      return "Elements nested too deeply (exceeds the configured maximum parse depth).";
    case kErrorTooManyAttributes:
      return "Too many attributes.";
    case kErrorTooLarge:
      return "Document too large.";
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

std::string PrintXml(const TiXmlDocument& document) {
  TiXmlPrinter printer;
  printer.SetIndent("");
  printer.SetLineBreak("");
  document.Accept(&printer);
  return printer.Str();
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
