#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "record/RecordStream.h"

namespace qvsvr::kelvo {

// The record streams in order of creation, with fast answers to the two questions of the frame path:
// whose frame is this, and is a file due. Worker thread only.
class StreamSet {
 public:
  // Finds by StreamId; null if there is none.
  [[nodiscard]] RecordStream* Find(std::uint32_t streamId) const;

  RecordStream& Add(std::unique_ptr<RecordStream> stream);
  // Destroys the stream.
  void Remove(RecordStream* stream);

  // The stream that a provider id's frames go to, or null: by StreamId or AltId; else the encoder
  // stream of its upper 24 bits; else the multiplexed stream of its owner and device.
  [[nodiscard]] RecordStream* Route(std::uint32_t provider);

  // Call after changing a stream's StreamId or AltId.
  void RoutesChanged() { Routes.clear(); }

  [[nodiscard]] const std::vector<std::unique_ptr<RecordStream>>& All() const { return Streams; }

 private:
  std::vector<std::unique_ptr<RecordStream>> Streams;
  std::unordered_map<std::uint32_t, RecordStream*> ById;
  std::unordered_map<std::uint32_t, RecordStream*> Routes;  // answers given since RoutesChanged
};

}  // namespace qvsvr::kelvo
