#pragma once

#include "platform/Platform.h"
#include "tests/support/FakeDrives.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/ManualClock.h"

namespace qv::kelvo {

// A platform for a test: time and drives by hand, real files that fail on demand.
struct TestBundle {
  ManualClock clock;
  FakeDrives drives;
  FaultyFiles files{SystemPlatform().mediaFiles};
  Platform platform{clock,
                    drives,
                    SystemPlatform().directories,
                    files,
                    SystemPlatform().durableFiles,
                    SystemPlatform().diskSync};
};

}  // namespace qv::kelvo
