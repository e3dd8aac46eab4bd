#include "record/DueFiles.h"

#include <algorithm>
#include <limits>

#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

// A stream that records nothing looks for a volume so often only.
constexpr std::int64_t kIdlePauseNs = 1'000'000'000;

// Later, and its negative earlier, than any time, with room for a sum.
constexpr qv::kelvo::UtcMs kFarOff = std::numeric_limits<qv::kelvo::UtcMs>::max() / 2;

}  // namespace

// A file that was opened in the future ends, too: the clock was set back, and it would go on for as
// long.
void DueFiles::Follow() {
  if (Streams.TakeFilesChanged()) Look();
  const qv::kelvo::UtcMs now = Services.Platform.clock.NowMs();
  if (now < NewestOpen || now - OldestOpen >= kFileLifeMs) EndOldFiles(now);
  OpenMissing();
  if (!Idle.empty()) LookForIdle();
}

void DueFiles::Look() {
  Missing.clear();
  Idle.clear();
  TheyKnow = false;
  OldestOpen = kFarOff;
  NewestOpen = -kFarOff;
  for (const auto& stream : Streams.All()) {
    if (const auto opened = stream->GetOpenTime()) {
      OldestOpen = std::min(OldestOpen, *opened);
      NewestOpen = std::max(NewestOpen, *opened);
    } else if (stream->ActiveChannels.none()) {
      Idle.push_back(stream.get());
    } else {
      Missing.push_back(stream.get());
    }
  }
  std::stable_partition(Missing.begin(), Missing.end(),
                        [](auto* stream) { return !stream->OpeningFailed(); });
}

void DueFiles::EndOldFiles(qv::kelvo::UtcMs now) {
  for (const auto& stream : Streams.All()) {
    if (Services.Manager.IsStopping()) return;
    if (stream->FileOver(now)) Guarded("closing a file", [&] { stream->CloseFile(); });
  }
  if (Streams.TakeFilesChanged()) Look();
}

void DueFiles::OpenMissing() {
  while (!Missing.empty() && !Services.Manager.IsStopping()) {
    RecordStream* stream = Missing.front();
    const bool again = stream->OpeningFailed();
    const bool whole = Open(*stream);
    if (Services.Volumes.Failed()) break;
    Missing.pop_front();
    if (stream->HasFile()) continue;
    Missing.push_back(stream);
    if (again || !whole) return;
  }
  if (TheyKnow || !Services.Volumes.Failed() || Services.Volumes.Searching()) return;
  for (RecordStream* stream : Missing) stream->NoteNoVolume();
  TheyKnow = true;
}

// Streams without a channel take part in the choice of a volume, which may make room.
void DueFiles::LookForIdle() {
  const std::int64_t now = Services.Platform.clock.SteadyNs();
  if (now < IdleDueNs) return;
  IdleDueNs = now + kIdlePauseNs;
  for (RecordStream* stream : Idle) {
    if (Services.Manager.IsStopping()) return;
    Open(*stream);
  }
}

bool DueFiles::Open(RecordStream& stream) {
  return Guarded("opening the next file", [&] { stream.OpenFile(); });
}

}  // namespace qvsvr::kelvo
