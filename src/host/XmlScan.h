#pragma once

#include <cstddef>

namespace qvsvr::kelvo {

// What a text may ask of the XML library.
struct XmlLimits {
  int depth = 0;               // levels of elements, the root being level 1
  std::size_t attributes = 0;  // of one element
  // Pairs of attributes in one element, over all elements: the library compares each of them.
  std::size_t pairs = 0;
  std::size_t items = 0;  // nodes and attributes of the document
};

enum class XmlVerdict {
  Harmless,  // the library may parse it; whether it is well-formed is for the library to say
  TooDeep,
  TooManyAttributes,
  TooLarge,
  CutDeclaration,  // a declaration without its end, which the library doesn't always survive
};

// Walks a text token by token just as the library will, without building anything and without
// recursion, up to the first thing that breaks a limit or that ends the library's parsing. Linear
// time. `text` ends with a NUL and kXmlPadding bytes of NUL in all.
inline constexpr std::size_t kXmlPadding = 16;
[[nodiscard]] XmlVerdict ScanXml(const char* text, const XmlLimits& limits);

}  // namespace qvsvr::kelvo
