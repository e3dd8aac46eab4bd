#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include "host/Log.h"

namespace qvsvr::kelvo {

FakeHost::FakeHost() {
  SetQuarantine(true);
  SetHostFunction(&FakeHost::HostFunction);
}

FakeHost::~FakeHost() {
  SetHostFunction(nullptr);
  EXPECT_EQ(Outstanding(), 0) << "buffers of the host were never released";
  EXPECT_EQ(BadReleases(), 0) << "buffers were released that weren't out";
}

std::uint32_t FakeHost::Handle(const KelvoHostRequest& request, KelvoHostReply& reply) {
  EXPECT_EQ(request.Size, 192U);
  EXPECT_EQ(request.Version, 1U);
  EXPECT_EQ(reply.Size, 12U);
  EXPECT_EQ(reply.Version, 1U);
  EXPECT_EQ(reply.Status, 0U);
  if (request.Class == KELVO_CLASS_LOG && request.SubCode == KELVO_SUB_LOG_LINE) {
    EXPECT_EQ(static_cast<const char*>(request.Payload)[request.Length - 1], '\0');
  }
  if (request.Class == KELVO_CLASS_SEARCH && onOther) return onOther(request, reply);
  return HostEnd::Handle(request, reply);
}

}  // namespace qvsvr::kelvo
