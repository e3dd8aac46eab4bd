#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "record/RecordServices.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// Ends the files whose time is over and opens those that are wanting. Worker thread only.
class DueFiles {
 public:
  // Borrows both for its life.
  DueFiles(RecordServices& services, StreamSet& streams) : Services(services), Streams(streams) {}

  // To be called after each message. Costs the same whatever number of streams can't get a file:
  // one question for a volume, one attempt by turns of those that failed to open theirs.
  void Follow();

 private:
  void Look();
  void EndOldFiles(qv::kelvo::UtcMs now);
  void OpenMissing();
  void LookForIdle();
  bool Open(RecordStream& stream);

  RecordServices& Services;
  StreamSet& Streams;
  qv::kelvo::UtcMs OldestOpen = 0, NewestOpen = 0;
  std::deque<RecordStream*> Missing;  // to record, without a file; those that failed are behind
  std::vector<RecordStream*> Idle;    // without anything to record
  bool TheyKnow = false;              // all of Missing, that there is no volume
  std::int64_t IdleDueNs = 0;         // monotonic
};

}  // namespace qvsvr::kelvo
