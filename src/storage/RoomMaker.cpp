#include "storage/RoomMaker.h"

#include "host/Log.h"
#include "storage/Cleanup.h"

namespace qvsvr::kelvo {
namespace {

// Lines about the choice of a record volume begin with GRV (GetRecordVolume); GAFS is the usable
// space that was found, in GB.

constexpr std::int64_t kFailureLifeNs = std::int64_t{20} * 60 * 1'000'000'000;
// While nothing may go every stream asks again and again.
constexpr std::int64_t kNothingLifeNs = std::int64_t{5} * 1'000'000'000;

}  // namespace

RoomMaker::RoomMaker(qv::kelvo::Platform& system, Catalogue& recordings)
    : platform(system), catalogue(recordings) {}

std::string RoomMaker::MakeRoom(const Request& request) {
  lastRoomMakingTime = platform.clock.NowMs() / 1000;
  ++roomMakingCount;
  if (!undecided) skips = failures = 0;
  undecided = false;
  const auto stopping = [&request] { return request.manager.IsStopping(); };
  WorkLimit limit(platform.clock, stopping, request.patient);
  const Catalogue::Question question{
      .roots = request.drives,
      .except =
          [&](const std::string& path) {
            return failedFiles.contains(path) || request.manager.IsBeingWritten(path);
          },
      .mayBeOld = nothingNs && platform.clock.SteadyNs() - *nothingNs < kNothingLifeNs};
  while (!stopping()) {
    const Catalogue::Answer oldest = catalogue.Oldest(question, limit);
    undecided = oldest.outcome == Catalogue::Outcome::Unknown;
    if (undecided) return {};
    skips += oldest.protectedFiles;
    if (oldest.outcome == Catalogue::Outcome::Nothing) {
      if (!question.mayBeOld) nothingNs = platform.clock.SteadyNs();
      return {};
    }
    nothingNs.reset();
    limit.Spend(WorkLimit::kDisk);
    if (!Remove(oldest)) continue;
    const std::int64_t usable = request.usableGB(oldest.root);
    if (usable >= request.desiredGB) return oldest.root;
    LogPrintf(LogTrace, "GRV GAFS:%d Desired:%d", static_cast<int>(usable),
              static_cast<int>(request.desiredGB));
  }
  return {};
}

// The catalogue is told first, so that a removal that throws isn't tried again in this pass.
bool RoomMaker::Remove(const Catalogue::Answer& oldest) {
  const std::string& path = oldest.path;
  LogPrintf(LogTrace, "GRV rm: %s", path.c_str());
  catalogue.Drop();
  if (RemoveRecording(path, oldest.root)) return true;
  if (failedFiles.empty()) firstFailureNs = platform.clock.SteadyNs();
  failedFiles.insert(path);
  ++failures;
  LogPrintf(LogTrace, "GRV failed to rm %s", path.c_str());
  return false;
}

void RoomMaker::ForgetOldFailures() {
  if (failedFiles.empty() || platform.clock.SteadyNs() - firstFailureNs < kFailureLifeNs) return;
  failedFiles.clear();
}

void RoomMaker::Reset() {
  lastRoomMakingTime = qv::kelvo::kNoTime;
  roomMakingCount = 0;
}

void RecordingState::Note(bool found) {
  if (!found && !recordingNotPossible) ++recordNotPossibleCount;
  recordingNotPossible = !found;
}

}  // namespace qvsvr::kelvo
