#include "storage/LicenceState.h"

namespace qvsvr::kelvo {

bool LicenceState::Apply(const TiXmlElement& /*system*/) {
  return false;
}

}  // namespace qvsvr::kelvo
