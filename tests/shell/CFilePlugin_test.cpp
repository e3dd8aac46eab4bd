#include "shell/CFilePlugin.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/FakeHost.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

// What the plug-in asks of the host arrives is seen through the exports in tests/plugin.
TEST(FilePlugin, TellsWhenTheHostFailsAndOpensOnlyOnce) {
  FakeHost host;
  qv::kelvo::TestBundle bundle;
  RecordQueue queue;
  CFilePlugin plugin(bundle.platform, queue);
  host.SetAnswer(3, 0);
  plugin.SendXmlEvent("<x/>", KELVO_CLASS_EVENT);
  plugin.DecrementReference(host.NewBuffer("b"));
  host.SetAnswer(0, 0xFFFFFFFF);
  plugin.SendXmlEvent("<y/>", KELVO_CLASS_EVENT);
  plugin.DecrementReference(host.NewBuffer("b"));
  host.SetAnswer(0, 0);
  plugin.DecrementReference(host.NewBuffer("b"));
  EXPECT_EQ(host.Lines().size(), 4u);
  for (const char* text :
       {"xml event ret 3 error code 0", "decrement reference event ret 3 error 0",
        "xml event ret 0 error code -1", "decrement reference event ret 0 error -1"}) {
    EXPECT_EQ(host.CountLines(75, text), 1u) << text;
  }

  std::int64_t seconds = 0;
  std::uint16_t milliseconds = 0;
  bundle.clock.SetNow(2'147'483'648'123);  // seconds are cut to a signed 32-bit number
  EXPECT_EQ(plugin.GetCoreTime(seconds, milliseconds), 0u);
  EXPECT_EQ(seconds, -2'147'483'648);
  EXPECT_EQ(milliseconds, 123);

  plugin.Open("4.5.6");
  EXPECT_THROW(plugin.Open("4.5.6"), std::logic_error);
  EXPECT_FALSE(plugin.IsStopping());
  plugin.Close();
  EXPECT_TRUE(plugin.IsStopping());
}

}  // namespace
}  // namespace qvsvr::kelvo
