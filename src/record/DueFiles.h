#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "record/RecordServices.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// Ends the files whose time is over and opens those that are wanting. It runs after each message
// and so costs a comparison or two while nothing is wanting: the open times are known as a range,
// and who has no file as two lists, made anew only when a stream's file or channels changed
// (StreamSet::TakeFilesChanged). Frames that can't be recorded, since no volume is to be had, pass
// at 1.7 million a second.
//
// Which stream is asked next matters when disks are bad: those that wait for their first attempt
// come ahead of those that failed, and one attempt that fails again is enough for a message. Part
// of CRecordMgr; worker thread only.
class DueFiles {
 public:
  // Borrows both for its life.
  DueFiles(RecordServices& services, StreamSet& streams) : Services(services), Streams(streams) {}

  // To be called after each message. Costs the same whatever number of streams can't get a file:
  // one question for a volume (RecordVolumes), one attempt by turns of those that failed to open
  // theirs.
  void Follow();

 private:
  void Look();  // makes the lists and the range anew
  void EndOldFiles(qv::kelvo::UtcMs now);
  void OpenMissing();
  void LookForIdle();
  bool Open(RecordStream& stream);

  RecordServices& Services;
  StreamSet& Streams;
  qv::kelvo::UtcMs OldestOpen = 0, NewestOpen = 0;  // of the open files; the first Look sets them
  std::deque<RecordStream*> Missing;  // to record, without a file; those that failed are behind
  std::vector<RecordStream*> Idle;    // without anything to record
  bool TheyKnow = false;              // all of Missing, that there is no volume
  std::int64_t IdleDueNs = 0;         // monotonic
};

}  // namespace qvsvr::kelvo
