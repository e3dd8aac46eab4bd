#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>

#include "record/DeviceConfig.h"
#include "record/MessageQueue.h"
#include "record/RecordServices.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// The record manager: takes what the host sends and does all recording on one worker thread.
// Enqueue, RequestStop and IsStopping from any thread; everything else belongs to the worker.
class CRecordMgr : public IRecordManager {
 public:
  // Borrows all for its life.
  CRecordMgr(CFileSystem& fileSystem, ICoreEventer& core, qv::kelvo::Platform& platform);
  // Joins the worker, ends all files and releases every buffer left in the queue.
  ~CRecordMgr() override;

  // False when stopping, with no reference taken; otherwise the queue owns the payload's reference.
  bool Enqueue(const RecordMessage& message);

  // Starts the worker; a second start throws std::logic_error.
  void Start();

  // Makes the worker end; doesn't wait.
  void RequestStop();

  // Handles one message on the calling thread: the worker's step, callable without a thread.
  void HandleMessage(const RecordMessage& message);

  // What the worker does after each message.
  void AfterMessage(std::int64_t sinceStatsNs);

  [[nodiscard]] std::int64_t ReservedGB(const std::string& volume) const override;
  [[nodiscard]] bool IsStopping() const override { return Stopping.load(); }

 private:
  // (see the worker's description in the source)
};

}  // namespace qvsvr::kelvo
