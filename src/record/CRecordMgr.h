#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "host/Xml.h"
#include "record/CRecordAlarms.h"
#include "record/DeviceConfig.h"
#include "record/DueFiles.h"
#include "record/MessageQueue.h"
#include "record/RecordQueue.h"
#include "record/RecordServices.h"
#include "record/Reservations.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// The record manager: takes what comes by a queue and does all recording on one worker thread.
// IsStopping from any thread; everything else belongs to the worker.
class CRecordMgr : public IRecordManager {
 public:
  // Borrows all for its life. Begins the queue and ends it again.
  CRecordMgr(CFileSystem& fileSystem, ICoreEventer& core, qv::kelvo::Platform& platform,
             RecordQueue& queue, qv::kelvo::RunTables* closed = nullptr);
  // Stops and joins the worker, ends all files and releases every buffer left in the queue.
  ~CRecordMgr() override;
  CRecordMgr(const CRecordMgr&) = delete;
  CRecordMgr& operator=(const CRecordMgr&) = delete;

  // Starts the worker, which ends when the queue is stopped; a second start throws
  // std::logic_error.
  void Start();

  // Handles one message on the calling thread: the worker's step, callable without a thread. Takes
  // over the payload's reference, also when it throws.
  void HandleMessage(const RecordMessage& message);

  // What the worker does after each message. `sinceStatsNs` is the age of the minute's statistics
  // when the message was taken; `now` is the steady clock.
  void AfterMessage(std::int64_t sinceStatsNs, std::int64_t now);

  [[nodiscard]] std::int64_t ReservedGB(const std::string& volume) const override;
  [[nodiscard]] bool IsBeingWritten(const std::string& path) const override;
  [[nodiscard]] bool IsStopping() const override { return Queue.IsStopping(); }

 private:
  void Run();
  void Process(const RecordMessage& message, std::int64_t begin);
  void TellWhatIsLeft();

  void HandleXml(const RecordMessage& message);
  void ApplyAction(const TiXmlElement& root);
  void ApplyConfiguration(const TiXmlElement& root, const std::vector<std::string>& cases);
  void ApplyArchiveStatus(const TiXmlElement& root);
  void ApplyCases(const std::vector<std::string>& elements);
  void ApplyDelta(const TiXmlElement& root);
  void ApplySystem(const TiXmlElement& root);

  void EndMinute(std::int64_t elapsedNs);
  [[nodiscard]] double RecordingRate(std::int64_t elapsedMicroseconds);
  void FollowAudioSetting();
  void KickSweeperWhenDue(std::int64_t now);

  CFileSystem& FileSystem;
  ICoreEventer& Core;
  qv::kelvo::Platform& Platform;
  CRecordAlarms Alarms;
  ReservationList Reservations;
  RecordVolumes Volumes;
  RecordServices Services;
  StreamSet Streams;
  DueFiles Files;
  PreAlarmTable PreAlarmSeconds;
  PtzInputs Ptz;
  ConfigTarget Config;

  RecordQueue& Queue;
  std::thread Worker;

  std::int64_t StatsStartNs = 0;
  std::int64_t SweepDueNs;
  // The state of CFileSystem's counter that the audio placement follows. It starts with that
  // counter at 0, so that a plug-in loaded anew finds no change before there is one.
  std::uint32_t PlacedAudioChanges = 0;
};

// Gives one media frame to the stream of its provider, the message's source. Takes over the
// payload's reference: it is with the stream or released when this returns or throws. Worker thread
// only.
void IntakeFrame(RecordServices& services, StreamSet& streams, const PtzInputs& ptz,
                 const RecordMessage& frame);

}  // namespace qvsvr::kelvo
