#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <mutex>
#include <string>
#include <thread>

#include "host/Xml.h"
#include "record/CRecordAlarms.h"
#include "record/DeviceConfig.h"
#include "record/MessageQueue.h"
#include "record/RecordServices.h"
#include "record/Reservations.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// The record manager: takes what the host sends and does all recording on one worker thread.
// Enqueue, RequestStop and IsStopping from any thread; everything else belongs to the worker.
class CRecordMgr : public IRecordManager {
 public:
  // Borrows all for its life.
  CRecordMgr(CFileSystem& fileSystem, ICoreEventer& core, qv::kelvo::Platform& platform);
  // Stops and joins the worker, ends all files and releases every buffer left in the queue.
  ~CRecordMgr() override;
  CRecordMgr(const CRecordMgr&) = delete;
  CRecordMgr& operator=(const CRecordMgr&) = delete;

  // False when stopping, with no reference taken; otherwise the queue owns the payload's reference.
  // Throws std::bad_alloc, with no reference taken, when memory runs out. While frames keep coming
  // a frame may wait 10 ms for the worker, which spares the caller the cost of waking it.
  bool Enqueue(const RecordMessage& message);

  // Starts the worker; a second start throws std::logic_error.
  void Start();

  // Makes the worker end; doesn't wait.
  void RequestStop();

  // Handles one message on the calling thread: the worker's step, callable without a thread. Takes
  // over the payload's reference, also when it throws.
  void HandleMessage(const RecordMessage& message);

  // What the worker does after each message. `sinceStatsNs` is the age of the minute's statistics
  // when the message was taken.
  void AfterMessage(std::int64_t sinceStatsNs);

  [[nodiscard]] std::int64_t ReservedGB(const std::string& volume) const override;
  [[nodiscard]] bool IsBeingWritten(const std::string& path) const override;
  [[nodiscard]] bool IsStopping() const override { return Stopping.load(); }

 private:
  void Run();
  // Waits for the next message; false when the worker has to end.
  [[nodiscard]] bool Next(RecordMessage& message, std::int64_t& sinceStatsNs);
  void Process(const RecordMessage& message, std::int64_t sinceStatsNs);

  void HandleXml(const RecordMessage& message);
  void ApplyAction(const TiXmlElement& root);
  void ApplyConfiguration(const TiXmlElement& root);
  void ApplyArchiveStatus(const TiXmlElement& root);
  void ApplyCases(const TiXmlElement& root);
  void ApplyDelta(const TiXmlElement& root);
  void ApplySystem(const TiXmlElement& root);

  void EndMinute(std::int64_t elapsedNs);
  [[nodiscard]] double RecordingRate(std::int64_t elapsedMicroseconds);
  void FollowAudioSetting();
  void OpenDueFiles();
  void KickSweeperWhenDue();

  CFileSystem& FileSystem;
  ICoreEventer& Core;
  qv::kelvo::Platform& Platform;
  CRecordAlarms Alarms;
  ReservationList Reservations;
  RecordServices Services;
  StreamSet Streams;
  PreAlarmTable PreAlarmSeconds;
  PtzInputs Ptz;
  ConfigTarget Config;

  std::mutex QueueLock;  // guards Queue and Dozing
  std::condition_variable QueueSignal;
  MessageQueue Queue;
  bool Dozing = false;                              // the worker looks at the queue again by itself
  int IdleDozes = std::numeric_limits<int>::max();  // since the last frame
  std::thread Worker;
  std::atomic<bool> Stopping{false};

  std::int64_t StatsStartNs = 0;
  std::int64_t SweepDueNs;
  // The state of CFileSystem's counter that the audio placement follows. It starts with that
  // counter at 0, so that a plug-in loaded anew finds no change before there is one.
  std::uint32_t PlacedAudioChanges = 0;
};

}  // namespace qvsvr::kelvo
