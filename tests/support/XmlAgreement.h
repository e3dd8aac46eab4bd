#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "host/Utf8.h"
#include "host/Xml.h"
#include "host/XmlScan.h"

namespace testsupport {

// What the library built.
struct XmlTree {
  explicit XmlTree(const TiXmlNode& node, int level = 0) {
    for (const TiXmlNode* child = node.FirstChild(); child; child = child->NextSibling()) {
      const TiXmlElement* element = child->ToElement();
      std::size_t attributes = 0;
      if (element != nullptr) content += '<' + element->ValueStr();
      for (const TiXmlAttribute* each = element == nullptr ? nullptr : element->FirstAttribute();
           each != nullptr; each = each->Next()) {
        extent.pairs += attributes++;
        content += '\1' + std::string(each->Name()) + '\2' + each->ValueStr();
      }
      const XmlTree below(*child, level + 1);
      content += below.content + (element != nullptr ? ">" : "");
      extent.depth = std::max({extent.depth, below.extent.depth, element ? level + 1 : 0});
      extent.attributes = std::max({extent.attributes, below.extent.attributes, attributes});
      extent.pairs += below.extent.pairs;
      extent.items += below.extent.items + attributes + 1;
    }
  }
  qvsvr::kelvo::XmlExtent extent;
  std::string content;  // elements and attributes
};

// How the scan of a message and the library differ over it, or how the library's print of it is not
// what was read; empty when all is well. `parsed` tells whether the text was let through.
inline std::string XmlDisagreement(const std::string& message, bool& parsed) {
  using namespace qvsvr::kelvo;
  constexpr XmlExtent kWide{60, 1000, 1'000'000, 1'000'000};
  constexpr XmlExtent kNarrow{3, 3, 4, 12};
  const std::string text = DecodeXml(message);
  XmlExtent found;
  XmlExtent unused;
  std::vector<std::string> elements;
  parsed = ScanXml(text, kWide, found, [&](int, std::string_view, std::string_view element) {
             elements.emplace_back(element);
           }) == XmlVerdict::Parsable;
  const bool fits = found.depth <= kNarrow.depth && found.attributes <= kNarrow.attributes &&
                    found.pairs <= kNarrow.pairs && found.items <= kNarrow.items;
  const bool narrow = ScanXml(text, kNarrow, unused) == XmlVerdict::Parsable;
  if (!IsUtf8(text)) return "not UTF-8";
  if (narrow != (parsed && fits)) {
    // A comment in the deepest element counts as a level.
    if (narrow || found.depth < kNarrow.depth) return "the limits don't hold";
  }
  if (!parsed) return {};

  TiXmlDocument document;
  document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
  const XmlTree tree(document);
  if (tree.extent.items > found.items) return "more items than were counted";
  if (document.Error()) return found.items == 0 ? "" : document.ErrorDesc();
  if (tree.extent.depth != found.depth || tree.extent.attributes != found.attributes ||
      tree.extent.pairs != found.pairs) {
    return "other counts than the tree has";
  }
  for (const std::string& element : elements) {
    TiXmlDocument alone;
    alone.LinkEndChild(new TiXmlElement(ParseElement(element)));
    if (tree.content.find(XmlTree(alone).content) == std::string::npos) {
      return "reads otherwise alone: " + element;
    }
    if (ParseTag(element).ValueStr() != alone.RootElement()->ValueStr()) return "another tag";
  }
  const std::string printed = DecodeXml(PrintXml(document));
  if (ScanXml(printed, kWide, unused) != XmlVerdict::Parsable) {
    return "the print is refused: " + printed;
  }
  TiXmlDocument again;
  again.Parse(printed.c_str(), nullptr, TIXML_ENCODING_UTF8);
  return XmlTree(again).content == tree.content ? "" : "the print reads otherwise: " + printed;
}

}  // namespace testsupport
