#include "host/HostLink.h"

#include <gtest/gtest.h>

#include "host/Log.h"
#include "tests/support/FakeHost.h"
#include "tests/support/ManualClock.h"

namespace qvsvr::kelvo {
namespace {

// What the host gets is seen through the exports in tests/plugin.
TEST(HostLink, TellsWhenTheHostFailsAndCutsTheTimeTo32Bits) {
  static std::uint32_t returned, status;
  FakeHost host;
  SetHostFunction([](const KelvoHostRequest* request, KelvoHostReply* reply) {
    if (request->Class == KELVO_CLASS_LOG) return FakeHost::HostFunction(request, reply);
    reply->Status = status;
    return returned;
  });
  qv::kelvo::ManualClock clock;
  FakeCore link(clock);
  const struct {
    std::uint32_t returned, status;
    const char* answer;
  } rows[] = {{3, 0, "ret 3 error "}, {0, 0xFFFFFFFF, "ret 0 error "}, {0, 0, nullptr}};
  for (const auto& row : rows) {
    returned = row.returned;
    status = row.status;
    link.SendXmlEvent("<x/>", KELVO_CLASS_EVENT);
    link.DecrementReference(nullptr);
    if (row.answer == nullptr) continue;
    const std::string code = row.status == 0 ? "0" : "-1";
    EXPECT_EQ(host.CountLines(75, std::string("xml event ") + row.answer + "code " + code), 1u);
    EXPECT_EQ(host.CountLines(75, std::string("reference event ") + row.answer + code), 1u);
  }
  EXPECT_EQ(host.Lines().size(), 4u);

  std::int64_t seconds = 0;
  std::uint16_t milliseconds = 0;
  clock.SetNow(2'147'483'648'123);
  EXPECT_EQ(link.GetCoreTime(seconds, milliseconds), 0u);
  EXPECT_EQ(seconds, -2'147'483'648);
  EXPECT_EQ(milliseconds, 123);
}

}  // namespace
}  // namespace qvsvr::kelvo
