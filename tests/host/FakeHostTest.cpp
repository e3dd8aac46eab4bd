#include "tests/support/FakeHost.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "host/Log.h"
#include "tests/support/ManualClock.h"

namespace qvsvr::kelvo {
namespace {

TEST(FakeHost, FailsTheTestWhenBuffersAreNotReleasedExactlyOnce) {
  static qv::kelvo::ManualClock clock;
  static void* buffer;
  static char stranger;
  EXPECT_NONFATAL_FAILURE(
      {
        FakeHost host;
        host.NewBuffer("frame");
      },
      "never released");
  EXPECT_NONFATAL_FAILURE(
      {
        FakeHost host;
        buffer = host.NewBuffer("frame");
        FakeCore(clock).DecrementReference(buffer);
        FakeCore(clock).DecrementReference(buffer);
      },
      "released already by release 1");
  EXPECT_NONFATAL_FAILURE(
      {
        FakeHost host;
        FakeCore(clock).DecrementReference(&stranger);
      },
      "unknown buffer");
}

TEST(FakeHost, CountsBuffersAndKeepsTraffic) {
  qv::kelvo::ManualClock clock(1'750'000'000'123);
  FakeHost host;
  FakeCore core(clock);
  for (int i = 0; i < 100; ++i) {
    core.DecrementReference(host.NewBuffer(i % 2 == 0 ? "" : "frame"));  // addresses come again
  }
  EXPECT_EQ(host.Releases(), 100U);
  EXPECT_EQ(host.Outstanding(), 0U);
  core.SendXmlEvent("<qDVR/>", KELVO_CLASS_BROADCAST);
  EXPECT_TRUE(host.WaitForEvents(1));
  EXPECT_EQ(host.Events()[0].text, "<qDVR/>");
  EXPECT_EQ(host.Events()[0].eventClass, 256U);
  std::int64_t seconds = 0;
  std::uint16_t milliseconds = 0;
  EXPECT_EQ(core.GetCoreTime(seconds, milliseconds), 0U);
  EXPECT_EQ(seconds, 1'750'000'000);
  EXPECT_EQ(milliseconds, 123);
}

}  // namespace
}  // namespace qvsvr::kelvo
