#pragma once

#include <cstdint>
#include <string>

#include "host/ICoreEventer.h"
#include "platform/Clock.h"

namespace qvsvr::kelvo {

// Sends to the host by its message function, and tells the time of a clock, which it borrows.
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
