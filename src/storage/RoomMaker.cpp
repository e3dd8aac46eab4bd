#include "storage/RoomMaker.h"

#include "host/Log.h"
#include "storage/RecordingRemoval.h"

namespace qvsvr::kelvo {

RoomMaker::RoomMaker(const WalkServices& borrowed) : services(borrowed), walker(borrowed) {}

std::string RoomMaker::MakeRoom(const Request& request) {
  lastRoomMakingTime = services.platform.clock.NowMs() / 1000;
  ++roomMakingCount;
  walker.SetVolumes(request.volumes);
  undecided = false;
  if (!request.possible) {
    walker.bookmarkSkips = walker.retentionSkips = failures = 0;
    return {};
  }
  const bool due = services.platform.clock.SteadyNs() >= resumeNs;
  std::string drive;
  if (!walker.Paused() || request.patient || due) drive = Delete(request);
  undecided = drive.empty() && walker.Paused();
  return drive;
}

std::string RoomMaker::Delete(const Request& request) {
  qv::kelvo::Clock& clock = services.platform.clock;
  walker.isBeingWritten = [&request](const std::string& path) {
    return request.manager.IsBeingWritten(path);
  };
  walker.Restart();
  if (!walker.Paused()) walker.bookmarkSkips = walker.retentionSkips = failures = 0;
  OldestFileWalker::Limits limits{[&request] { return request.manager.IsStopping(); }};
  while (!limits.stop()) {
    if (!request.patient) limits.deadlineNs = clock.SteadyNs() + kSearchNs;
    const auto oldest = walker.NextRemovableFile(limits);
    if (!oldest) {
      resumeNs = clock.SteadyNs() + kPauseNs;
      return {};
    }
    const std::string& path = oldest->path;
    const auto drive = request.drives.find(oldest->volume);
    if (drive == request.drives.end()) {
      LogPrintf(LogError, "GRV failed to locate drive for %s", path.c_str());
      continue;
    }
    if (drive->second.alarmBits != 0) {
      LogPrintf(LogTrace, "GRV drive alarmed for %s", path.c_str());
      continue;
    }
    LogPrintf(LogTrace, "GRV rm: %s", path.c_str());
    if (!RemoveRecording(path, services.volumeDepth)) {
      walker.NoteFailure(path);
      ++failures;
      LogPrintf(LogTrace, "GRV failed to rm %s", path.c_str());
      continue;
    }
    const std::int64_t usable = request.usableGB(drive->first);
    if (usable >= request.desiredGB) return drive->first;
    LogPrintf(LogTrace, "GRV GAFS:%d Desired:%d", static_cast<int>(usable),
              static_cast<int>(request.desiredGB));
  }
  return {};
}

void RoomMaker::Reset() {
  lastRoomMakingTime = kNoTime;
  roomMakingCount = 0;
}

}  // namespace qvsvr::kelvo
