#include "host/Xml.h"

#include <array>
#include <charconv>
#include <limits>
#include <span>
#include <utility>

#include "host/Utf8.h"
#include "host/XmlScan.h"
#include "platform/Files.h"

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

// Takes the elements out of a text that they are views of, in their order. The text has no NUL.
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

namespace {

using qv::kelvo::FileKind;
using qv::kelvo::IsMissing;
using qv::kelvo::Platform;
using qv::kelvo::WhileBusy;

// More than any document that is accepted.
constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 30;
// A call that failed for want of something is tried again.
constexpr int kTries = 3;

std::string BackupOf(const std::string& path) {
  return path + ".bak";
}

// Reads a whole file. `error` gets the system's number when it is Unreadable.
XmlFileState ReadOnce(qv::kelvo::MediaFiles& files, const std::string& path, std::string& text,
                      int& error) {
  FileKind kind{};
  error = qv::kelvo::FindKind(path, kind);
  if (error != 0) return XmlFileState::Unreadable;
  if (kind == FileKind::Missing) return XmlFileState::Missing;
  if (kind != FileKind::File) return XmlFileState::Damaged;
  std::unique_ptr<qv::kelvo::MediaFile> file;
  std::uint64_t size = 0;
  error = files.Open(path, qv::kelvo::OpenMode::Read, file);
  if (error == 0) error = file->Size(size);
  if (error != 0) return XmlFileState::Unreadable;
  if (size > kMaxFileBytes) return XmlFileState::Damaged;
  text.resize(static_cast<std::size_t>(size));
  const qv::kelvo::IoResult result =
      file->ReadAt(0, std::as_writable_bytes(std::span(text.data(), text.size())));
  error = result.error;
  return error == 0 && result.bytes == size ? XmlFileState::Good : XmlFileState::Unreadable;
}

XmlFileState ReadWholeFile(const Platform& platform, const std::string& path, std::string& text,
                           int& error) {
  auto state = XmlFileState::Unreadable;
  for (int i = 0; i < kTries && state == XmlFileState::Unreadable; ++i) {
    const int last = WhileBusy(platform.clock, [&] {
      state = ReadOnce(platform.mediaFiles, path, text, error);
      return state == XmlFileState::Unreadable ? error : 0;
    });
    if (qv::kelvo::IsBusy(last)) break;
  }
  return state;
}

// A step on a file that need not be there.
int ErrorUnlessMissing(int error) {
  return IsMissing(error) ? 0 : error;
}

// Makes `path` the backup. An old backup gives way only while there is a file to take its place.
int MakeBackup(qv::kelvo::DurableFiles& files, const std::string& path, const std::string& backup) {
  int error = ErrorUnlessMissing(files.Rename(path, backup));
  if (error == 0) return 0;
  error = ErrorUnlessMissing(files.Remove(backup));
  return error != 0 ? error : ErrorUnlessMissing(files.Rename(path, backup));
}

// Puts a complete pending file into the place of `path`. Between its steps there is always a whole
// file under one of the names that the next load looks at.
bool Swap(const Platform& platform, const std::string& pending, const std::string& path) {
  qv::kelvo::DurableFiles& files = platform.durableFiles;
  const std::string backup = BackupOf(path);
  int error = WhileBusy(platform.clock, [&] { return MakeBackup(files, path, backup); });
  const bool backupMade = error == 0;
  if (backupMade) {
    error = WhileBusy(platform.clock, [&] { return files.Rename(pending, path); });
  } else if (qv::kelvo::IsBusy(error)) {
    // A removed backup that somebody still holds keeps its name from others.
    error = files.Replace(pending, path);
  }
  if (error == 0) {
    (void)files.Remove(backup);  // else the next load does
    return true;
  }
  (void)files.Remove(pending);
  if (backupMade) (void)WhileBusy(platform.clock, [&] { return files.Rename(backup, path); });
  return false;
}

std::string WriteNew(const Platform& platform, const std::string& path, const std::string& text) {
  using Step = qv::kelvo::DurableFiles::WriteStep;
  qv::kelvo::DurableFiles::WriteResult result;
  (void)WhileBusy(platform.clock, [&] {
    result = platform.durableFiles.WriteNew(path, text);
    return result.step == Step::Create ? result.error : 0;
  });
  const std::string number = std::to_string(result.error);
  switch (result.step) {
    case Step::Create:
      return "create error " + number;
    case Step::Write:
      return "write error " + number;
    case Step::Close:
      return "close error " + number;
    case Step::Done:
      break;
  }
  if (result.written == text.size()) return {};
  return "only wrote " + std::to_string(result.written) + " of " + std::to_string(text.size()) +
         " bytes";
}

}  // namespace

void XmlDocument::FailWith(int code, std::string text) {
  ownError = code;
  ownText = std::move(text);
}

XmlFileState XmlDocument::LoadFile(const Platform& platform, const std::string& path) {
  std::string text;
  int number = 0;
  const XmlFileState state = ReadWholeFile(platform, path, text, number);
  if (state == XmlFileState::Good) {
    return ParseFrom(Source::File, text) ? XmlFileState::Good : XmlFileState::Damaged;
  }
  Clear();
  ClearError();
  FailWith(kErrorNotOpened, state == XmlFileState::Unreadable
                                ? "Failed to open file, error " + std::to_string(number)
                                : "Failed to open file");
  return state;
}

// For the time of printing the texts aside stand in the tree, which keeps the order of children.
std::string XmlDocument::PrintWhole() {
  TiXmlElement* const root = FirstChildElement(kRootName);
  std::vector<TiXmlNode*> put;
  for (const std::string& element : aside) {
    if (root == nullptr) break;
    // The library prints a node that it doesn't know as it stands between < and >.
    auto* const node = new TiXmlUnknown;
    node->SetValue(element.substr(1, element.size() - 2));
    put.push_back(root->LinkEndChild(node));
  }
  std::string text = PrintXml(*this, "\n");
  for (TiXmlNode* node : put) node->Parent()->RemoveChild(node);
  return text;
}

// Writes the document as a new file and reads it back; what went wrong, or nothing.
std::string XmlDocument::WritePending(const Platform& platform, const std::string& path) {
  const std::string text = PrintWhole();
  std::string message = WriteNew(platform, path, text);
  if (!message.empty()) return message;
  std::string back;
  int number = 0;
  if (ReadWholeFile(platform, path, back, number) != XmlFileState::Good) {
    return "read back error " + std::to_string(number);
  }
  if (back != text) return "read back other bytes than were written";
  XmlDocument document;
  document.nameAside = nameAside;
  if (document.ParseFrom(Source::File, back)) return {};
  return std::string("read back: ") + document.ErrorDesc();
}

bool XmlDocument::SaveFile(const qv::kelvo::Platform& platform, const std::string& path) {
  const std::string pending = path + ".pending";
  std::string message = WritePending(platform, pending);
  if (!message.empty()) {
    (void)platform.durableFiles.Remove(pending);
  } else if (Swap(platform, pending, path)) {
    return true;
  } else {
    message = "xml file swap failed";
  }
  FailWith(kErrorNotSaved, std::move(message));
  return false;
}

XmlFileState XmlDocument::LoadFileWithBackup(const qv::kelvo::Platform& platform,
                                             const std::string& path) {
  qv::kelvo::DurableFiles& durable = platform.durableFiles;
  const std::string backup = BackupOf(path);
  const XmlFileState state = LoadFile(platform, path);
  firstText = ErrorDesc();
  if (state == XmlFileState::Good) (void)durable.Remove(backup);
  // What can't be read just now may be better than its backup.
  if (state == XmlFileState::Good || state == XmlFileState::Unreadable) return state;
  const XmlFileState second = LoadFile(platform, backup);
  if (second == XmlFileState::Missing) return state;
  if (second == XmlFileState::Good) {
    (void)WhileBusy(platform.clock, [&] { return durable.Replace(backup, path); });
  }
  return second;
}

}  // namespace qvsvr::kelvo
