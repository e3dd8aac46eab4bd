// What comes in from outside, before the XML library sees it: the scan lets nothing through that
// the library reads in another way.

#include <cstdio>
#include <cstdlib>

#include "tests/support/XmlAgreement.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  bool parsed = false;
  const std::string found =
      testsupport::XmlDisagreement({reinterpret_cast<const char*>(data), size}, parsed);
  if (found.empty()) return 0;
  std::fprintf(stderr, "%s\n", found.c_str());
  std::abort();
}
