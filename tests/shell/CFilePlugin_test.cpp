#include "shell/CFilePlugin.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "host/Log.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

class FilePlugin : public ::testing::Test {
 protected:
  FakeHost host;
  qv::kelvo::TestBundle bundle;
  qv::kelvo::TempTree tree;
  CFilePlugin plugin{bundle.platform};
};

TEST_F(FilePlugin, OpensOnlyOnceAndStopsWithItsRecorder) {
  bundle.drives.Add(tree.MakeDirectory("a"));
  plugin.Open("4.5.6");
  ASSERT_TRUE(host.WaitForEvents(3));
  EXPECT_NE(host.Events()[0].text.find("Version=\"4.5.6\""), std::string::npos);
  EXPECT_THROW(plugin.Open("4.5.6"), std::logic_error);
  EXPECT_EQ(host.Events().size(), 3u);
  EXPECT_FALSE(plugin.IsStopping());
  plugin.RecordMgr.RequestStop();
  EXPECT_TRUE(plugin.IsStopping());
}

TEST_F(FilePlugin, RequestsCarryTheirFieldsAndFailuresAreTold) {
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
  EXPECT_EQ(host.Outstanding(), 0u);

  KelvoHostRequest seen{};
  host.onOther = [&](const KelvoHostRequest& request, KelvoHostReply& reply) {
    seen = request;
    reply.Status = 9;
    return 8u;
  };
  KelvoHostRequest request{};
  request.Size = 192;
  request.Version = 1;
  request.Class = KELVO_CLASS_SEARCH;
  request.RequestId = 77;
  KelvoHostReply reply{12, 1, 0};
  EXPECT_EQ(plugin.SendHostMessage(request, reply), 8u);
  EXPECT_EQ(reply.Status, 9u);
  EXPECT_EQ(seen.RequestId, 77u);
  SetHostFunction(nullptr);
  EXPECT_EQ(plugin.SendHostMessage(request, reply), 0u);
  plugin.SendXmlEvent("<z/>", KELVO_CLASS_EVENT);
}

TEST_F(FilePlugin, CoreTimeIsTheWallClock) {
  std::int64_t seconds = 0;
  std::uint16_t milliseconds = 0;
  const auto at = [&](qv::kelvo::UtcMs now) {
    bundle.clock.SetNow(now);
    EXPECT_EQ(plugin.GetCoreTime(seconds, milliseconds), 0u);
  };
  at(1'700'000'000'123);
  EXPECT_EQ(seconds, 1'700'000'000);
  EXPECT_EQ(milliseconds, 123);
  at(2'147'483'648'000);  // seconds are cut to a signed 32-bit number
  EXPECT_EQ(seconds, -2'147'483'648);
}

}  // namespace
}  // namespace qvsvr::kelvo
