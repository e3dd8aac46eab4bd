#include "tests/plugin/seams/TestPlatform.h"

#include "kelvo/host_abi.h"
#include "shell/PluginLife.h"

namespace {
qv::kelvo::Platform* testPlatform = nullptr;
}

extern "C" KELVO_EXPORT void KelvoTestPlatform(qv::kelvo::Platform* platform) {
  testPlatform = platform;
}

namespace qvsvr::kelvo {

qv::kelvo::Platform& PluginPlatform() {
  return testPlatform != nullptr ? *testPlatform : qv::kelvo::SystemPlatform();
}

}  // namespace qvsvr::kelvo
