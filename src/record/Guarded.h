#pragma once

#include <exception>

#include "host/Log.h"

namespace qvsvr::kelvo {

// Runs one step of the worker, which nothing may end: what it throws ends here, with a line in the
// log. False then.
template <typename Step>
bool Guarded(const char* what, Step step) noexcept {
  try {
    step();
    return true;
  } catch (const std::exception& error) {
    LogPrintf(LogError, "%s failed: %s", what, error.what());
  } catch (...) {
    LogPrintf(LogError, "%s failed: unknown exception", what);
  }
  return false;
}

}  // namespace qvsvr::kelvo
