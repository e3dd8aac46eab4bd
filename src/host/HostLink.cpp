#include "host/HostLink.h"

#include "host/Log.h"
#include "kelvo/host_abi.h"

namespace qvsvr::kelvo {
namespace {

KelvoHostRequest NewRequest() {
  KelvoHostRequest request{};
  request.Size = sizeof request;
  request.Version = 1;
  request.Source = KELVO_MODULE_ID;
  return request;
}

KelvoHostReply NewReply() {
  return {sizeof(KelvoHostReply), 1, 0};
}

}  // namespace

std::uint32_t HostLink::SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) {
  const KelvoHostFunction host = HostFunction();
  return host == nullptr ? 0 : host(&request, &reply);
}

void HostLink::SendXmlEvent(const std::string& text, std::uint32_t eventClass) {
  KelvoHostRequest request = NewRequest();
  request.Length = static_cast<std::uint32_t>(text.size());
  request.Payload = text.data();
  request.Class = eventClass;
  request.SubCode = KELVO_SUB_XML_EVENT;
  KelvoHostReply reply = NewReply();
  const std::uint32_t result = SendHostMessage(request, reply);
  if (result != 0 || reply.Status != 0) {
    LogPrintf(LogError, "xml event ret %d error code %d", result, reply.Status);
  }
}

void HostLink::DecrementReference(void* buffer) {
  KelvoHostRequest request = NewRequest();
  request.Payload = buffer;
  request.Class = KELVO_CLASS_RELEASE;
  KelvoHostReply reply = NewReply();
  const std::uint32_t result = SendHostMessage(request, reply);
  if (result != 0 || reply.Status != 0) {
    LogPrintf(LogError, "decrement reference event ret %d error %d", result, reply.Status);
  }
}

std::uint32_t HostLink::GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) {
  const qv::kelvo::UtcMs now = clock.NowMs();
  seconds = static_cast<std::int32_t>(now / 1000);
  milliseconds = static_cast<std::uint16_t>(now % 1000);
  return 0;
}

}  // namespace qvsvr::kelvo
