#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "record/RecordStream.h"

namespace qvsvr::kelvo {

// The record streams in order of creation, with fast answers to the two questions of the frame
// path: whose frame is this, and is a file due. Worker thread only.
class StreamSet {
 public:
  // Finds by StreamId; null if there is none.
  [[nodiscard]] RecordStream* Find(std::uint32_t streamId) const;

  // The stream's StreamId isn't in the set yet and stays what it is.
  RecordStream& Add(std::unique_ptr<RecordStream> stream);
  // Destroys the stream.
  void Remove(RecordStream* stream);

  // The stream that a provider id's frames go to, or null: by StreamId or AltId, unless the
  // provider id is 0; else the encoder stream of its upper 24 bits; else the multiplexed stream of
  // its owner and device. Costs the same for ids that nobody knows.
  [[nodiscard]] RecordStream* Route(std::uint32_t provider);

  // Call after changing a stream's AltId.
  void RoutesChanged() { RoutesStale = true; }

  // Whether RecordStream::FileDue holds for any of them; looks at each only after a file opened or
  // closed.
  [[nodiscard]] bool AnyFileDue(qv::kelvo::UtcMs now);

  [[nodiscard]] const std::vector<std::unique_ptr<RecordStream>>& All() const { return Streams; }

 private:
  void RefreshRoutes();
  void RefreshFileAges();

  using Index = std::unordered_map<std::uint32_t, RecordStream*>;
  // Ahead of the streams, which report to it until they are gone.
  bool FilesChanged = true;
  bool RoutesStale = false;
  std::vector<std::unique_ptr<RecordStream>> Streams;
  Index ByStreamId;
  Index ByEitherId;  // StreamId and AltId; the first stream in order has the id
  bool SomeWithoutFile = false;
  qv::kelvo::UtcMs OldestOpen = 0, NewestOpen = 0;  // over all streams, when each has a file
};

}  // namespace qvsvr::kelvo
