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

// The record manager. One worker thread takes the host's blocks from the queue, in their order, and
// does all that recording is: it decides, writes, applies configuration, chooses volumes and makes
// room. So streams, alarms, reservations and CFileSystem need no locks, and a configuration takes
// effect between two frames. 1,600 frames of 20 KB a second take 1.6 % of a core that way; the disk
// is the limit long before the processor.
//
// The price is that nothing on the worker may wait for long: a bucket is never asked, and room is
// made in slices (CFileSystem::GetRecordVolume). What goes wrong with one message ends with it, in
// the log; the worker goes on with the next.
//
// Owned by CFilePlugin. Constructor, Start and destructor belong to the thread of the export that
// calls them, IsStopping to any thread, everything else to the worker; a test that has no worker
// calls HandleMessage and AfterMessage itself.
class CRecordMgr : public IRecordManager {
 public:
  // Borrows all for its life. Begins the queue and ends it again.
  CRecordMgr(CFileSystem& fileSystem, ICoreEventer& core, qv::kelvo::Platform& platform,
             RecordQueue& queue, qv::kelvo::RunTables* closed = nullptr);
  // Stops and joins the worker, ends all files and releases every buffer: of frames that are still
  // undecided, which aren't written, and of those left in the queue.
  ~CRecordMgr() override;
  CRecordMgr(const CRecordMgr&) = delete;
  CRecordMgr& operator=(const CRecordMgr&) = delete;

  // Starts the worker, which ends when the queue is stopped; a second start throws
  // std::logic_error.
  void Start();

  // Handles one message on the calling thread: the worker's step, callable without a thread. Takes
  // over the payload's reference, also when it throws.
  void HandleMessage(const RecordMessage& message);

  // What the worker does after each message: the minute's statistics and report, a report that is
  // owed, files that end or are wanting, the hour's sweep. A host that sends nothing leaves all of
  // it undone. `sinceStatsNs` is the age of the minute's statistics when the message was taken;
  // `now` is the steady clock.
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

  // Built in this order, since Services borrows what stands above it and the streams borrow
  // Services.
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

  std::int64_t StatsStartNs = 0;  // monotonic; when the minute at hand began
  std::int64_t SweepDueNs;        // monotonic
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
