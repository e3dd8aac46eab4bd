#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvsvr::kelvo {

// How much of the XML library a text takes, or may take.
struct XmlExtent {
  int depth = 0;               // levels of elements, the root being level 1
  std::size_t attributes = 0;  // of one element
  // Pairs of attributes in one element, over all elements: the library compares each of them.
  std::size_t pairs = 0;
  std::size_t items = 0;  // nodes and attributes of the document
};

enum class XmlVerdict { Parsable, TooDeep, TooManyAttributes, TooLarge, Malformed };

// A message or file as UTF-8, with an empty declaration if it has one. Text ends at its first NUL.
[[nodiscard]] std::string DecodeXml(std::string_view text);

// Walks a decoded text token by token just as the library will, without building anything and
// without recursion. Parsable means that the library gets through the whole text, unless an
// attribute stands twice in an element, and builds a tree of the depth and the attributes that are
// in `found`, with at most so many items. Whatever this walk can't follow exactly is Malformed.
// Linear time.
[[nodiscard]] XmlVerdict ScanXml(const std::string& text, const XmlExtent& limits,
                                 XmlExtent& found);

}  // namespace qvsvr::kelvo
