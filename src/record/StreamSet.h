#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "record/RecordStream.h"

namespace qvsvr::kelvo {

// The record streams in order of creation, with a fast answer to the question of the frame path:
// whose frame is this. Two tables answer it: by StreamId, which never changes here, and by either
// id, which is made anew after Changes. It also notices when a file may be wanting, for DueFiles,
// so that this isn't asked of each stream after each message. Owns the streams; worker thread only.
class StreamSet {
 public:
  // Finds by StreamId; null if there is none.
  [[nodiscard]] RecordStream* Find(std::uint32_t streamId) const;

  // The stream's StreamId isn't in the set yet and stays what it is.
  RecordStream& Add(std::unique_ptr<RecordStream> stream);
  // Destroys the stream.
  void Remove(RecordStream* stream);

  // The stream that a provider id's frames go to, or null: by StreamId or AltId, unless the
  // provider id is 0 (AltId 0 means none); else the encoder stream of its upper 24 bits; else the
  // multiplexed stream of its owner and device. Costs the same for ids that nobody knows.
  [[nodiscard]] RecordStream* Route(std::uint32_t provider);

  // Call before changing AltId or ActiveChannels of streams: the next Route goes by the new ids,
  // and DueFiles looks at all streams after the message.
  void Changes() { RoutesStale = FilesChanged = true; }

  // Whether a stream came or went, or anything of what decides when it needs a file, since the last
  // call.
  [[nodiscard]] bool TakeFilesChanged() { return std::exchange(FilesChanged, false); }

  [[nodiscard]] const std::vector<std::unique_ptr<RecordStream>>& All() const { return Streams; }

 private:
  void RefreshRoutes();

  using Index = std::unordered_map<std::uint32_t, RecordStream*>;
  // Ahead of the streams, which report to it until they are gone.
  bool FilesChanged = true;
  bool RoutesStale = false;
  std::vector<std::unique_ptr<RecordStream>> Streams;
  Index ByStreamId;
  Index ByEitherId;  // StreamId and AltId; the first stream in order has the id
};

}  // namespace qvsvr::kelvo
