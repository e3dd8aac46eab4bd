#include "search/SearchHelper.h"

#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint32_t kStatusCancelled = 1;

}  // namespace

KelvoHostRequest SearchHelper::NewRequest(std::uint32_t subCode) const {
  KelvoHostRequest request{};
  request.Size = sizeof request;
  request.Version = 1;
  request.Source = KELVO_MODULE_ID;
  request.RequestId = requestId;
  request.Class = KELVO_CLASS_SEARCH;
  request.SubCode = subCode;
  return request;
}

EventReply SearchHelper::Answer::Meaning() const {
  if (returned != 0) return EventReply::Failed;
  if (status == 0) return EventReply::GoOn;
  return status == kStatusCancelled ? EventReply::Cancelled : EventReply::Failed;
}

SearchHelper::Answer SearchHelper::Ask(const KelvoHostRequest& request) {
  if (callback.IsStopping()) return {0, kStatusCancelled};
  KelvoHostReply reply{sizeof(KelvoHostReply), 1, 0};
  const std::uint32_t returned = callback.SendHostMessage(request, reply);
  return {returned, reply.Status};
}

EventReply SearchHelper::Send(const KelvoHostRequest& request, const char* name) {
  const Answer answer = Ask(request);
  const EventReply meaning = answer.Meaning();
  const auto id = static_cast<unsigned long>(requestId);
  if (meaning == EventReply::Cancelled) {
    LogPrintf(LogTrace, "%08lX search canceled", id);
  } else if (meaning == EventReply::Failed) {
    LogPrintf(LogError, "%08lX %s event ret %d error %d", id, name,
              static_cast<int>(answer.returned), static_cast<int>(answer.status));
  }
  return meaning;
}

bool SearchHelper::ReportProgress(std::uint32_t /*hour*/) {
  return Send(NewRequest(KELVO_SUB_SEARCH_PROGRESS), "progress") == EventReply::GoOn;
}

EventReply SearchHelper::SendResult(const std::string& document) {
  KelvoHostRequest request = NewRequest(KELVO_SUB_SEARCH_RESULT);
  request.Length = static_cast<std::uint32_t>(document.size());
  request.Payload = document.data();
  return Send(request, "result");
}

EventReply SearchHelper::SendEnd() {
  return Send(NewRequest(KELVO_SUB_SEARCH_PROGRESS), "end");
}

EventReply SearchHelper::SendFrame(const KelvoHostRequest& frame) {
  return Send(frame, "pes");
}

EventReply SearchHelper::SendEmptyFrame(const KelvoHostRequest& frame) {
  return Ask(frame).Meaning();
}

}  // namespace qvsvr::kelvo
