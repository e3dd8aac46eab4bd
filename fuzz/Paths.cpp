// Names of recordings and their order.

#include <cstdlib>
#include <string>
#include <string_view>

#include "tree/CFileInfo.h"
#include "tree/HourListing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qv::kelvo;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const ParsedName name = ParseName(text);
  CFileInfo info;
  const bool parsed = info.ParsePath(std::string(text));
  const bool bare = text.find_first_of("/\\") == std::string_view::npos;
  if (name.valid && bare && name.suffix.find('.') == std::string_view::npos &&
      (!parsed || info.id != name.id || info.minute != name.minute)) {
    std::abort();
  }
  const std::string_view a = text.substr(0, size / 2), b = text.substr(size / 2);
  if (ComesBefore(a, b) && ComesBefore(b, a)) std::abort();
  if (a != b && !ComesBefore(a, b) && !ComesBefore(b, a)) std::abort();
  return 0;
}
