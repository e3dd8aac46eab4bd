#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/Xml.h"

namespace qvsvr::kelvo {

// The root element of a text, which must parse.
class ParsedXml {
 public:
  explicit ParsedXml(const std::string& text) { EXPECT_TRUE(document.ParseText(text)) << text; }
  [[nodiscard]] const TiXmlElement& Root() const { return *document.RootElement(); }

 private:
  XmlDocument document;
};

// An element as text.
[[nodiscard]] inline std::string TextOf(const TiXmlElement& element) {
  TiXmlDocument document;
  document.InsertEndChild(element);
  return PrintXml(document);
}

}  // namespace qvsvr::kelvo
