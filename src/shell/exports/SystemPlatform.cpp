#include "shell/PluginLife.h"

namespace qvsvr::kelvo {

qv::kelvo::Platform& PluginPlatform() {
  return qv::kelvo::SystemPlatform();
}

}  // namespace qvsvr::kelvo
