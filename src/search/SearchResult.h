#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "search/SearchRequest.h"
#include "tree/CFileInfo.h"

namespace qvsvr::kelvo {

// What tells one result record of an input from another, in the order of the document.
struct ResultKey {
  std::int64_t bucket = 0;
  std::uint8_t streamId = 0;  // low byte of the StreamID
  std::uint8_t standard = 0;
  std::uint8_t width16 = 0, height16 = 0;            // video
  std::uint16_t bufSizeSamples = 0, sampleRate = 0;  // audio

  // clang-tidy 14 misreads a defaulted comparison.
  auto operator<=>(const ResultKey&) const = default;  // NOLINT(modernize-use-nullptr)
};

// Seconds since 1970 UTC.
struct ResultValues {
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::uint32_t count = 0;  // frames; 0 for a listing
  std::uint8_t flags = 0;
};

// A stretch of one stream, seconds since 1970 UTC.
struct FileRun {
  std::uint8_t stream = 0;
  std::uint8_t flags = 0;
  std::int64_t first = 0;
  std::int64_t last = 0;
};

// What was found, by input.
class SearchResults {
 public:
  // One entry for each input that the request names.
  explicit SearchResults(const SearchRequest& request);

  // A listing's run of the file's stream. One that no input asked for is passed over.
  void AddRun(const qv::kelvo::CFileInfo& info, const FileRun& run, std::int64_t start,
              std::int64_t resolution);
  // The chosen streams of a file that will be played back.
  void AddRows(const qv::kelvo::CFileInfo& info, std::int64_t start);

  // The result document. A record whose times make no sense is told of in the log.
  [[nodiscard]] std::string Document(const SearchRequest& request);

 private:
  // What was found of an input, in little room, since it may be hundreds of thousands. Most comes
  // in order.
  class Records {
   public:
    void Merge(const ResultKey& key, const ResultValues& values);
    // One record for each key, in order.
    [[nodiscard]] const std::deque<std::pair<ResultKey, ResultValues>>& Settle();

   private:
    std::deque<std::pair<ResultKey, ResultValues>> records;
    std::size_t settleAt = 1024;  // before there are more
  };
  // The records of the input that a stream belongs to and the low byte of its id; null if nobody
  // asked for it.
  [[nodiscard]] Records* Find(const qv::kelvo::CFileInfo& info, unsigned stream,
                              std::uint8_t& streamId);
  std::map<RequestKey, Records> inputs;
};

}  // namespace qvsvr::kelvo
