#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace qvsvr::kelvo {

// A walk over a text as the XML library will read it, with the library's own tokenizers: the guard
// of XmlDocument, and the way to elements that are never to be a tree. An agreement of both is
// tested by fuzzing (fuzz/Xml.cpp).

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

// Called for each element when its end is reached, so for children before their parent; the root's
// level is 1. Both views are of the scanned text, `element` from its `<` to its `>`.
using ElementVisitor =
    std::function<void(int level, std::string_view name, std::string_view element)>;

// Walks a decoded text token by token just as the library will, without building anything and
// without recursion. Parsable means that the library gets through the whole text and builds a tree
// of the depth and the attributes that are in `found`, with at most so many items. Whatever this
// walk can't follow exactly is Malformed; `visit`, which may be empty, has seen elements until
// there. Linear time but for the pairs of attributes.
[[nodiscard]] XmlVerdict ScanXml(const std::string& text, const XmlExtent& limits, XmlExtent& found,
                                 const ElementVisitor& visit = {});

}  // namespace qvsvr::kelvo
