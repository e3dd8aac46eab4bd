#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "host/HostLink.h"
#include "hostkit/HostEnd.h"

namespace qvsvr::kelvo {

// A host without a plug-in, installed as the host function: made before and destroyed after all
// that uses it. The test fails unless each buffer came back exactly once.
class FakeHost : public hostkit::HostEnd {
 public:
  using XmlEvent = Event;

  FakeHost();
  ~FakeHost() override;

  // Takes search traffic, which is answered 0 without it. Set it before that can come.
  std::function<std::uint32_t(const KelvoHostRequest&, KelvoHostReply&)> onOther;

 protected:
  std::uint32_t Handle(const KelvoHostRequest& request, KelvoHostReply& reply) override;
};

// The plug-in's face towards the host, for what is tested without the plug-in.
class FakeCore : public HostLink {
 public:
  using HostLink::HostLink;
  bool IsStopping() const override { return stopping; }

  std::atomic<bool> stopping{false};
};

}  // namespace qvsvr::kelvo
