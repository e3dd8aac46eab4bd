#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <tinyxml.h>

#include "platform/Platform.h"

namespace qvsvr::kelvo {

inline constexpr char kRootName[] = "qDVR";

// How a file was found.
enum class XmlFileState {
  Good,
  Missing,
  Damaged,    // not a document that a start takes, or not a file at all
  Unreadable  // the system can't read it now; it may be good
};

// A document that survives hostile input, and whose files survive power cuts.
//
// TinyXML recurses with the nesting of elements, compares each attribute of an element with all
// before it and reads on over errors. So a text is first walked by ScanXml, which reads it as the
// library will but builds nothing: nesting, attributes and size have limits, and what it can't
// follow exactly is refused. Parsing then neither recurses deeper than `maxParseDepth` nor takes
// more than linear time. What comes in is made UTF-8: bytes that aren't are taken for Windows-1252,
// and so is the whole text where its declaration says so.
//
// Most of what is large need not be a tree: elements set aside during the walk stay text and take a
// tenth of the memory. One thread at a time. Error(), ErrorId(), ErrorDesc(), ErrorRow() and
// ErrorCol() shadow the library's and tell these errors too.
class XmlDocument : public TiXmlDocument {
 public:
  // Of a file that couldn't be opened, as the library has it.
  static constexpr int kErrorNotOpened = 2;
  static constexpr int kErrorNotSaved = 2;
  // The library's table of errors continued.
  static constexpr int kErrorNestedTooDeeply = 17;
  static constexpr int kErrorTooManyAttributes = 18;
  static constexpr int kErrorTooLarge = 19;
  static constexpr int kErrorMalformed = 20;

  // Levels of elements, the root being level 1. Copied with the document.
  int maxParseDepth = 100;

  // Children of the root with this name don't go into the tree: `aside` gets their texts, which
  // take a tenth of the memory, and SaveFile puts them at the root's end. To be set before parsing.
  std::string nameAside;
  std::vector<std::string> aside;

  // Parses a message, which needs no terminator and ends at its first NUL if it has one. Returns
  // whether the whole text parsed; after false the tree may hold a part and must not be used.
  bool ParseText(std::string_view text);

  // Reads and parses a regular file; after anything but Good the document's error is set. The
  // limits of a file leave room for the largest message beside the rest. Waits up to some seconds
  // while another program has the file, as do the other two.
  XmlFileState LoadFile(const qv::kelvo::Platform& platform, const std::string& path);

  // Writes the document so that a crash or power cut at any moment leaves the old or the new file,
  // the old one perhaps as `path`.bak for LoadFileWithBackup to put back. A new version is built as
  // `path`.pending and read back, as a start would, before it takes the old one's place. After
  // false the error is kErrorNotSaved with the cause as its text. One save of a file at a time.
  bool SaveFile(const qv::kelvo::Platform& platform, const std::string& path);

  // Loads `path` or, when that is missing or damaged, its backup, which takes its place if it is
  // good. A good file makes a backup that was left over superfluous: it is removed. The error is
  // that of the last attempt; FirstErrorDesc tells what was wrong with `path` itself.
  XmlFileState LoadFileWithBackup(const qv::kelvo::Platform& platform, const std::string& path);

  [[nodiscard]] bool Error() const { return ownError != 0 || TiXmlDocument::Error(); }
  [[nodiscard]] int ErrorId() const { return ownError != 0 ? ownError : TiXmlDocument::ErrorId(); }
  [[nodiscard]] const char* ErrorDesc() const;
  [[nodiscard]] const std::string& FirstErrorDesc() const { return firstText; }
  [[nodiscard]] int ErrorRow() const { return ownError != 0 ? -1 : TiXmlDocument::ErrorRow(); }
  [[nodiscard]] int ErrorCol() const { return ownError != 0 ? -1 : TiXmlDocument::ErrorCol(); }

 private:
  enum class Source { Message, File };
  // 0 or the number of the error; `decoded` gets the text as UTF-8, without what goes aside.
  [[nodiscard]] int Check(std::string_view text, Source source, std::string& decoded);
  bool ParseFrom(Source source, std::string_view text);
  void FailWith(int code, std::string text);
  [[nodiscard]] std::string PrintWhole();
  [[nodiscard]] std::string WritePending(const qv::kelvo::Platform& platform,
                                         const std::string& path);

  int ownError = 0;
  std::string ownText;    // of a file error
  std::string firstText;  // of a load with a backup
};

// Starts an outgoing document: a declaration of empty strings and the root `qDVR`, which is
// returned and belongs to `document`.
TiXmlElement* BeginXml(TiXmlDocument& document);

// A document's or an element's text, UTF-8, with an empty indent and the line break.
[[nodiscard]] std::string PrintXml(const TiXmlNode& node, const char* lineBreak = "");

// An element of a text that was parsed, or only its tag with the attributes.
[[nodiscard]] TiXmlElement ParseElement(std::string_view text);
[[nodiscard]] TiXmlElement ParseTag(std::string_view text);

// Calls `visit` for each element of such a text that holds one, its children's children and so on
// included, each ahead of the one around it; `level` is 1 for the outermost.
void ForEachElement(
    const std::string& text,
    const std::function<void(int level, std::string_view name, std::string_view element)>& visit);

// An attribute that holds a broken number, with six digits and a point whatever the locale.
void SetDouble(TiXmlElement& element, const char* name, double value);

// Attribute as the library's query reads it, with the rules of ExtractInt: the library leaves open
// what becomes of a number that is out of range.
[[nodiscard]] bool ReadInt(const TiXmlElement& element, const char* name, int& value);

// Attribute by stream extraction, as `std::istringstream >> value` does it: leading blanks and
// trailing text are allowed. False, with `value` as it was, when missing, not a number or out of
// range.
[[nodiscard]] bool ExtractInt(const TiXmlElement& element, const char* name, std::int32_t& value);
[[nodiscard]] bool ExtractUnsigned(const TiXmlElement& element, const char* name,
                                   std::uint32_t& value);

// Attribute text, or "" when missing. Borrowed from the element.
[[nodiscard]] const char* ReadText(const TiXmlElement& element, const char* name);

// Children of one name, for range-based loops: for (const TiXmlElement& e : Children(p, "Device")).
class ElementRange {
 public:
  ElementRange(const TiXmlElement* firstChild, const char* childName)
      : first(firstChild), name(childName) {}
  class Iterator {
   public:
    Iterator(const TiXmlElement* element, const char* siblingName)
        : at(element), name(siblingName) {}
    const TiXmlElement& operator*() const { return *at; }
    Iterator& operator++() {
      at = at->NextSiblingElement(name);
      return *this;
    }
    bool operator!=(const Iterator& other) const { return at != other.at; }

   private:
    const TiXmlElement* at;
    const char* name;
  };
  [[nodiscard]] Iterator begin() const { return {first, name}; }
  [[nodiscard]] Iterator end() const { return {nullptr, name}; }

 private:
  const TiXmlElement* first;
  const char* name;
};
[[nodiscard]] inline ElementRange Children(const TiXmlElement& parent, const char* name) {
  return {parent.FirstChildElement(name), name};
}

}  // namespace qvsvr::kelvo
