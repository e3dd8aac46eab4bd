#pragma once

#include "host/Xml.h"

namespace qvsvr::kelvo {

// Whether the installation runs unrestricted. The one place where a licence is judged. Worker
// thread only.
class LicenceState {
 public:
  // Takes the root of a system message; true when the restricted state changed. This edition has no
  // licence to check and stays unrestricted.
  bool Apply(const TiXmlElement& /*system*/) { return false; }

  [[nodiscard]] bool Restricted() const { return restricted; }

 private:
  bool restricted = false;
};

}  // namespace qvsvr::kelvo
