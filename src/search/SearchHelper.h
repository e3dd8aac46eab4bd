#pragma once

#include <cstdint>
#include <string>

#include "host/ICoreEventer.h"
#include "search/SearchBase.h"

namespace qvsvr::kelvo {

// What the host made of an event of a search.
enum class EventReply { GoOn, Cancelled, Failed };

// A search's line to the host. Everything but a GoOn ends the search. Once the plug-in is told to
// stop nothing is sent any more, as if the host had cancelled.
class SearchHelper : public SearchBase {
 public:
  SearchHelper(ICoreEventer& core, std::uint32_t request) : callback(core), requestId(request) {}

  bool ReportProgress(std::uint32_t hour) override;
  EventReply SendResult(const std::string& document);
  EventReply SendEnd();
  // `frame` comes from NewRequest, with the frame's fields filled in.
  EventReply SendFrame(const KelvoHostRequest& frame);
  // In place of a frame that can't be read. Leaves no line in the log.
  EventReply SendEmptyFrame(const KelvoHostRequest& frame);

  // A request of this search.
  [[nodiscard]] KelvoHostRequest NewRequest(std::uint32_t subCode) const;
  [[nodiscard]] std::uint32_t RequestId() const { return requestId; }

 private:
  struct Answer {
    std::uint32_t returned = 0;
    std::uint32_t status = 0;
    [[nodiscard]] EventReply Meaning() const;
  };
  Answer Ask(const KelvoHostRequest& request);
  // Logs every answer but a GoOn.
  EventReply Send(const KelvoHostRequest& request, const char* name);

  ICoreEventer& callback;
  const std::uint32_t requestId;
};

}  // namespace qvsvr::kelvo
