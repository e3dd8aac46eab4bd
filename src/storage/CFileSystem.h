#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "host/ICoreEventer.h"
#include "host/Xml.h"
#include "media/StreamId.h"
#include "storage/Bookmarks.h"
#include "storage/Catalogue.h"
#include "storage/Healer.h"
#include "storage/Protection.h"
#include "storage/RetentionRules.h"
#include "storage/RoomMaker.h"
#include "storage/Schedule.h"
#include "storage/StatusReport.h"
#include "storage/StorageFile.h"
#include "storage/StorageMessages.h"
#include "storage/Sweeper.h"
#include "storage/VolumeTable.h"
#include "tree/FileSystemBase.h"

namespace qvsvr::kelvo {

// Whether the installation runs unrestricted. The one place where a licence is judged; nothing asks
// it for its state yet. Worker thread only.
class LicenceState {
 public:
  // Takes the root of a system message; true when the restricted state changed. This edition has no
  // licence to check and stays unrestricted.
  bool Apply(const TiXmlElement& /*system*/) { return false; }

  [[nodiscard]] bool Restricted() const { return restricted; }

 private:
  bool restricted = false;
};

// The storage manager: drives, settings, retention, bookmarks, archive targets. A face over the
// parts in this folder, each of which answers for its own; what stands here is how they go
// together. It keeps two things true whatever comes in:
// - nothing is deleted before it is known what is protected: until the settings were read, no room
//   is made and no sweep begins;
// - what is stored is put in force once, however late it can be read, and what was changed
//   meanwhile on top of it.
//
// CFilePlugin owns it, and it outlives the record manager. All operations belong to the record
// worker (or to Open, before the worker starts), without a lock, except those that say otherwise:
// GetVolumes and GetTargets, for searches, read an immutable snapshot that the worker replaces
// after each change (VolumeTable).
class CFileSystem : public qv::kelvo::FileSystemBase {
 public:
  // Borrows both for its life.
  CFileSystem(ICoreEventer& core, qv::kelvo::Platform& system);
  ~CFileSystem() override;

  // Finds the drives and takes the settings from "kelvo.xml" in the current directory, then saves
  // and broadcasts them. False, with nothing read or written, when there is no drive: the first one
  // to come brings the settings. Once, before the worker starts.
  bool LoadStorage();

  void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter* filter) override;
  void GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter* filter) override;

  // Name of the drive with the most usable space, at least `desiredGB`. Without one the oldest
  // recordings that nothing protects are deleted until there is, once the settings are known. Empty
  // when that doesn't help, when `manager` is null or stopping, or `desiredGB` is below 1; and when
  // there is no answer yet, see StillSearching. Blocks for 60 ms at most, but for a single removal
  // or listing that takes longer; with room on a drive it costs one query of space for each.
  [[nodiscard]] virtual std::string GetRecordVolume(const IRecordManager* manager,
                                                    std::int64_t desiredGB);

  // Whether the last GetRecordVolume was empty for want of time: the next call goes on where it
  // left off. Nobody has been told meanwhile that recording isn't possible.
  [[nodiscard]] virtual bool StillSearching() const { return searching; }

  // The same for somebody who asks only once: looks for as long as it takes.
  [[nodiscard]] std::string GetVolumeToReserve(const IRecordManager* manager,
                                               std::int64_t desiredGB);

  // Removes a recording with its companions and the directories that this empties, as
  // RemoveRecording does. Returns whether it is gone; a file that doesn't exist counts as gone.
  // Without `force` a protected one stays.
  virtual bool RemoveFile(const std::string& path, bool force);

  // Takes the drives of a disk-preparation message (a Storage element). True when one was new.
  bool ApplyDiskPrep(const TiXmlElement& storage);

  // Takes the archive targets and network drives of a configuration (an Archives element). True
  // when a drive came or went; the host is told of those that went.
  bool ApplyArchivesXml(const TiXmlElement& archives);

  // Takes the states of targets and network drives of an action (an Archives element).
  void ApplyArchiveStatus(const TiXmlElement& archives);

  // Applies the Storage children of `parent` that carry this module's id. `drivesGiven` tells
  // whether the last of them named a known drive; answers for unknown drives are added to `reply`.
  // Each is followed by a full report. Returns true.
  bool ApplyStorageXml(const TiXmlElement& parent, bool& drivesGiven, TiXmlElement& reply);

  // Takes the text of a Cases element in the place of all bookmarks. A live one (not `fromFile`) is
  // stored first.
  void ApplyCasesXml(const std::string& cases, bool fromFile);

  // Writes "kelvo.xml" and broadcasts the settings.
  void SaveStorage();

  // Sends a copy of `element`, with this module's id, as an event. Any thread.
  void SendStorageXml(const TiXmlElement& element);

  // Tells the host how the drives are. A full report measures: it looks for the oldest recording
  // that may go, asks each drive for its space, and writes and reads a file on each. Ahead of that
  // it tries again what failed when the storage was loaded or saved. When the oldest isn't known
  // within a call's time the drives' states are told at once, and the full report by a later
  // ContinueReport.
  virtual void ReportStatus(bool full);

  // Goes on with a full report that is owed. To be called after each message; costs nothing when
  // none is.
  void ContinueReport();

  // With `stop` ends the background pass over the trees and waits; returns whether one was running.
  // Otherwise starts one, unless the settings aren't known yet, and returns true only when the last
  // one is still running.
  virtual bool KickSweeper(bool stop);

  // Begins the configuration of one provider (the ID of a Devices element): ends the background
  // pass over the trees, waits for it, and forgets the provider's rules.
  void ForgetDevice(std::uint32_t provider);

  // Mends in the background what a power cut did to the recordings on the drives, and on those that
  // come later. To be called once the storage is loaded, before anything is recorded.
  void HealRecordings();

  // Both for searches; any thread (Healer).
  void NoteUnreadable(const std::string& path) override { healer.NoteUnreadable(path); }
  [[nodiscard]] std::shared_ptr<const void> HoldRecordings(std::int64_t first,
                                                           std::int64_t last) override {
    return healer.Hold(first, last);
  }

  // The parts that answer for themselves.
  [[nodiscard]] qv::kelvo::WriteBack& Disk() { return disk; }
  [[nodiscard]] RetentionRules& Retention() { return retention; }
  [[nodiscard]] const TimeLapseTable& Lapse() const { return lapse; }
  [[nodiscard]] LicenceState& Licence() { return licence; }
  [[nodiscard]] const VolumeTable& Volumes() const { return volumes; }

  // Megabits per second, for the status report.
  void SetRecordingMbps(double value);

 private:
  // Brings the drive table in line; returns whether it changed.
  bool FollowNetworkDrives(VolumeTable::Change& change, NetworkDrives found);
  // GB that may be recorded on a drive of the table now: 0 when it is disabled, faulty, not
  // writable or can't be measured; negative when its reserve is in use.
  [[nodiscard]] std::int64_t GetUsableSpace(const IRecordManager& manager, const std::string& name,
                                            const DriveRecord& record);
  void LogFoundDrives();
  void HealNewDrives();
  [[nodiscard]] SavedTables Tables() const { return {volumes.Drives(), retention, lapse}; }
  void FindDrives();
  // Puts the stored settings and bookmarks in force, if they aren't yet, then saves and broadcasts
  // them unless the caller does. False while they can't be read.
  bool LearnSettings(bool save = true);
  // Tries again what could not be done: listing the drives, reading the settings, saving them.
  void CatchUp();
  void TellStatus(bool full);
  [[nodiscard]] std::string MakeRoom(const IRecordManager& manager, std::int64_t desiredGB);
  // Looks for the oldest recording that may go; false when the call's time didn't do.
  [[nodiscard]] bool FindOldest(std::int64_t& seconds);
  void SendReport(const StatusReport::Measures* measures);
  [[nodiscard]] Sweeper::Owner SweeperOwner();
  [[nodiscard]] std::int64_t NowSeconds();

  ICoreEventer& eventSink;
  VolumeTable volumes;
  DriveMeter meter;
  RetentionRules retention;
  TimeLapseTable lapse;
  RecordingState recordingState;
  LicenceState licence;
  double recordingMbps = 0;

  BookmarkTable bookmarkTable;
  StorageFile settingsFile;
  bool drivesListed = false;  // the system has told its drives, be it none
  Protection protection;
  Catalogue catalogue;
  RoomMaker roomMaker;
  bool heals = false;       // since HealRecordings
  bool patient = false;     // a search for room isn't interrupted
  bool searching = false;   // the last choice of a volume has no answer yet
  bool reportOwed = false;  // a full report waits for the oldest recording
  ReadWriteTest readWriteTest;
  StatusReport statusReport;
  ScanTimes scanTimes;
  std::uint64_t scanNs = 0;  // of the search for the oldest recording that is under way
  // As in `retention`, for the sweeper's thread.
  std::atomic<bool> cleanupRemoves{true};
  qv::kelvo::WriteBack disk;
  Sweeper sweeper;  // ends before anything that it uses
  Healer healer;
};

}  // namespace qvsvr::kelvo
