#pragma once

#include <cstdint>
#include <string>

#include "host/ICoreEventer.h"
#include "platform/Clock.h"

namespace qvsvr::kelvo {

// Sends to the host by its message function (SetHostFunction), and tells the time of a clock, which
// it borrows for its life. CFilePlugin is one, and so is the core that tests of the layers use. Any
// thread: a call lasts as long as the host takes for it; without a host function nothing is sent.
//
// What the host doesn't take is told in the log and otherwise lost: there is nobody else to turn
// to. A reference counts as given back then, too, since a second attempt might give it back twice.
class HostLink : public ICoreEventer {
 public:
  explicit HostLink(qv::kelvo::Clock& time) : clock(time) {}

  std::uint32_t SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) override;
  void SendXmlEvent(const std::string& text, std::uint32_t eventClass) override;
  void DecrementReference(void* buffer) override;
  std::uint32_t GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) override;

 private:
  qv::kelvo::Clock& clock;
};

}  // namespace qvsvr::kelvo
