#include "search/Search.h"

#include <exception>

#include "host/Log.h"
#include "host/Xml.h"
#include "search/Playback.h"
#include "search/SearchHelper.h"

namespace qvsvr::kelvo {
namespace {

// False when the search is over without an end event: refused, cancelled or not taken by the host.
bool Execute(std::string_view text, SearchTargetFileSystem& target, SearchHelper& helper) {
  SearchRequest request;
  if (!text.empty()) {
    XmlDocument document;
    if (!document.ParseText(text)) {
      LogPrintf(LogTrace, "Ignoring bad search request from provider %08X - %s", helper.RequestId(),
                document.ErrorDesc());
      return false;
    }
    request = ParseSearchRequest(document);
    target.Restrict(request);
  }

  PlaybackFiles files;
  if (!request.keys.empty()) {
    SearchResults results(request);
    if (!helper.Run(request, target, results, files)) return false;
    if (helper.SendResult(results.Document(request)) != EventReply::GoOn) return false;
  }
  if (request.type != 0) {
    if (files.empty()) {
      LogPrintf(LogWarning,
                "SEARCH: Video search no results (we expect no search unless metadata previously "
                "found).");
    }
    if (!PlayBack(helper, target, files)) return false;
  }
  return true;
}

bool ExecuteGuarded(std::string_view text, SearchTargetFileSystem& target, SearchHelper& helper) {
  try {
    return Execute(text, target, helper);
  } catch (const std::exception& error) {
    LogPrintf(LogError, "%08lX search failed: %s", static_cast<unsigned long>(helper.RequestId()),
              error.what());
  } catch (...) {
    LogPrintf(LogError, "%08lX search failed: unknown exception",
              static_cast<unsigned long>(helper.RequestId()));
  }
  return true;
}

}  // namespace

std::uint32_t Search(std::string_view text, std::uint32_t requestId, SearchTargetFileSystem& target,
                     ICoreEventer& callback) noexcept {
  SearchHelper helper(callback, requestId);
  target.Buckets().onWaiting = [&helper] { return helper.ReportProgress(0); };
  if (ExecuteGuarded(text, target, helper) && requestId != 0) (void)helper.SendEnd();
  return 0;
}

}  // namespace qvsvr::kelvo
