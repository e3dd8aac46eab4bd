// The life of a record stream's file: opening, feeding and closing it. A file ends after five
// minutes (DueFiles), by a change of the configuration, by a write error or with its stream. After
// a write error the writer is closed but OpenTime stays, so that the next file is opened when this
// one's time would have been over: a disk that fails is not asked again for each frame.

#include <algorithm>
#include <bitset>
#include <utility>

#include "host/Log.h"
#include "media/PackedTime.h"
#include "platform/Platform.h"
#include "record/RecordStream.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

namespace media = qv::kelvo;

constexpr std::int32_t kReservedGB = 1;  // set aside on the volume for each open file
constexpr std::uint8_t kMaxExtensionInFile = 87;
constexpr unsigned kFileMode = 0644;

// What a file says of a slot. `name` is borrowed.
media::PsStreamDescriptor Describe(const ChannelSlot& slot, int index) {
  const auto low8 = [](std::int32_t value) { return static_cast<std::uint8_t>(value); };
  const auto low16 = [](std::int32_t value) { return static_cast<std::uint16_t>(value); };
  media::PsStreamDescriptor descriptor;
  if (index < kVideoSlots) {
    descriptor.streamType = static_cast<std::uint8_t>(low8(slot.Standard) + media::kVideoTypes);
    descriptor.streamId = low8((slot.Standard != 0 ? 0xE0 : 0xD0) + index);
    descriptor.width16 = low8(slot.Width / 16);
    descriptor.height16 = low8(slot.Height / 16);
  } else {
    descriptor.streamType = static_cast<std::uint8_t>(low8(slot.Standard) + media::kAudioTypes);
    descriptor.streamId = low8(0xC0 + index - kVideoSlots);
    descriptor.bufSizeSamples = low16(slot.BufSizeSamples);
    descriptor.sampleRate = low16(slot.SampleRate);
  }
  descriptor.encoder = low8(slot.Encoder);
  descriptor.channel = low8(slot.Input);
  descriptor.name = slot.Name;
  return descriptor;
}

media::PSFrame ToPSFrame(const PendingFrame& pending, const ChannelSlot& slot) {
  media::PSFrame frame;
  frame.stream = pending.Slot;
  frame.flags = pending.Flags;
  const auto* bytes = static_cast<const std::byte*>(pending.Buffer);
  if (pending.IsPes) {
    frame.packet = bytes;
    frame.size = pending.Size;
    return frame;
  }
  frame.SetTime(pending.Time);
  frame.frameType = pending.Type;
  frame.encoder = static_cast<std::uint8_t>(slot.Encoder);
  frame.channel = static_cast<std::uint8_t>(slot.Input);
  frame.payload = bytes;
  frame.payloadSize = pending.Size;
  frame.userData = reinterpret_cast<const std::byte*>(pending.Extension.data());
  frame.userDataSize = std::min(pending.ExtensionLength, kMaxExtensionInFile);
  return frame;
}

}  // namespace

bool RecordStream::FileOver(media::UtcMs now) const {
  return OpenTime && (now < *OpenTime || now - *OpenTime >= kFileLifeMs);
}

void RecordStream::NoteNoVolume() {
  if (NoVolume || Services.Volumes.Searching() || Services.Manager.IsStopping()) return;
  LogPrintf(LogWarning, "system %08X could not get record volume", StreamId);
  NoVolume = true;
}

// The volume comes first: as long as there is none the file at hand goes on beyond its time.
void RecordStream::OpenFile() {
  RefreshDefaultLapse();
  const bool records = ActiveChannels.any();
  const std::string volume = records ? Services.Volumes.Take() : Services.Volumes.Look();
  if (volume.empty()) {
    NoteNoVolume();
    return;
  }
  if (NoVolume) LogPrintf(LogInfo, "system %08X got a record volume", StreamId);

  const media::UtcMs now = Services.Platform.clock.NowMs();
  const std::string path =
      media::MakePath(volume, now, records ? StreamId : 0, media::CreateDirectories::Yes);
  CloseFile();
  if (records) {
    const int error = OpenWriter(path);
    if (error == media::kPsOk) {
      if (OpenFailed) LogPrintf(LogInfo, "system %08X opened %s", StreamId, path.c_str());
      OpenTime = now;
      FileName = path;
      if (FileChanged != nullptr) *FileChanged = true;
      Services.FileSystem.Disk().Opened(volume, path, media::IndexPath(path));
      Services.Reservations.AddReservation({path, volume, kReservedGB});
    } else if (!OpenFailed) {
      LogPrintf(LogError, "system %08X open %s error %d", StreamId, path.c_str(), error);
    }
  }
  // A stream that has nothing to record counts as failed, too.
  OpenFailed = !Writer.IsWriting();
  NoVolume = false;
  // What has waited for the volume doesn't wait for the stream's next frame, too.
  if (std::exchange(Settled, nullptr) != nullptr) FlushPending();
}

int RecordStream::OpenWriter(const std::string& path) {
  media::PsFileInfo info;
  info.fileInput[0] = Layout;
  std::array<media::PsStreamDescriptor, kSlots> descriptors;
  for (int i = 0; i < kSlots; ++i) {
    const auto index = static_cast<std::size_t>(i);
    descriptors[index] = Describe(Slots[index], i);
  }
  const int error = Writer.Create(path, info, descriptors, 0);
  if (error != media::kPsOk) return error;

  CurrentPath = path;
  if (const int mode = Writer.SetMediaAccessMode(kFileMode); mode != 0) {
    LogPrintf(LogWarning, "Change access mode error %d for %s", mode, path.c_str());
  }
  if (const int mode = Writer.SetIndexAccessMode(kFileMode); mode != 0) {
    LogPrintf(LogWarning, "Change access mode error %d for %si", mode, path.c_str());
  }
  LogPrintf(LogInfo, "Opened %s (and PSI).", path.c_str());
  return media::kPsOk;
}

void RecordStream::CloseFile() {
  const bool empty = CloseWriter();
  if (!OpenTime) return;
  const std::string path = FileName;
  ForgetFile();
  if (empty) Services.FileSystem.RemoveFile(path, true);
}

// The reservation and the open time go; the file itself has ended before.
void RecordStream::ForgetFile() {
  if (!OpenTime) return;
  Services.Reservations.RemoveReservation(FileName);
  OpenTime.reset();
  FileName.clear();
  if (FileChanged != nullptr) *FileChanged = true;
}

// Returns whether a file was open and holds no frames.
bool RecordStream::CloseWriter() {
  SteadyOfFlush.reset();
  WriteContinuedGroups();
  if (!Writer.IsWriting()) return false;
  const std::uint32_t frames = Writer.GetFrameCount(media::kWholeFile);
  const std::size_t clips = Writer.ClipCount();
  const std::string path = CurrentPath;
  EndWriter();
  LogPrintf(LogInfo, "Closed %s (and PSI) frames:%lu, clips:%zu.", path.c_str(),
            static_cast<unsigned long>(frames), clips);
  return frames == 0;
}

void RecordStream::EndWriter() {
  Services.Alarms.NoteFileEnd(OwnId, CurrentPath);
  Writer.Close();
  Services.FileSystem.Disk().Closed(CurrentPath);
  CurrentPath.clear();
}

// Pending dependent frames ahead of their slot's next key frame belong to a group that is in this
// file, so they go there, too; the next file starts with new groups.
void RecordStream::WriteContinuedGroups() {
  const auto continues = [](const PendingFrame* frame) {
    return frame != nullptr && !frame->IsKey();
  };
  std::bitset<kSlots> open;
  for (int slot = 0; slot < kSlots; ++slot) {
    open[static_cast<std::size_t>(slot)] = continues(Pending.SlotFront(slot));
  }
  for (PendingFrame* frame = Pending.Front(); open.any();) {
    PendingFrame* newer = frame->Newer;
    if (open[frame->Slot]) {
      open[frame->Slot] = continues(frame->SlotNewer);
      WriteSoon(frame, Counted::No);
    }
    frame = newer;
  }
  WriteRun(Counted::No);
}

// Takes a pending frame into the run that is written next. One that can't reach the file is lost:
// there is no file, or its channel would begin in it with a picture that nobody can decode.
void RecordStream::WriteSoon(PendingFrame* frame, Counted counted) {
  const bool begins = Writer.GetFrameCount(frame->Slot) == 0 && !RunSlots[frame->Slot];
  if (!Writer.IsWriting() || (begins && !frame->IsKey())) {
    Release(frame);
    return;
  }
  // What the write needs of it may have left the caches long ago; it comes back meanwhile.
  qv::kelvo::PrefetchToChange(&frame->Provider);
  Run.push_back(frame);
  RunSlots.set(frame->Slot);
  Pending.Take(frame);
  if (Run.size() == media::FrameRun::kFrames) WriteRun(counted);
}

// Writes the run and gives its buffers back, whatever is thrown on the way: written again, its
// frames would be in the file twice. Frames that don't reach the file are lost: kept, they would
// hold up what comes behind them for as long as the disk fails.
void RecordStream::WriteRun(Counted counted) {
  if (Run.empty()) return;
  RunFrames.clear();
  for (const PendingFrame* frame : Run) {
    RunFrames.push_back(ToPSFrame(*frame, Slots[frame->Slot]));
  }
  struct Ending {
    ~Ending() { stream.EndRun(); }
    RecordStream& stream;
  };
  const Ending ending{*this};
  WriteStreamFrames(counted);
}

void RecordStream::EndRun() {
  for (PendingFrame* frame : Run) {
    Services.Core.DecrementReference(frame->Buffer);
    Pending.Discard(frame);
  }
  Run.clear();
  RunSlots.reset();
}

// The first error ends the file, since nobody knows what is in it behind that place.
void RecordStream::WriteStreamFrames(Counted counted) {
  if (!Writer.IsWriting()) return;
  std::size_t written = 0;
  const int error = Writer.WriteFrames(RunFrames, written);
  for (std::size_t i = 0; i < written; ++i) {
    NoteWritten(*Run[i]);
    if (counted == Counted::Yes) CountWritten(*Run[i]);
  }
  if (error != media::kPsOk) {
    const std::string path = CurrentPath;
    EndWriter();
    LogPrintf(LogError, "Closed %s (and PSI) - psfile write error %ld.", path.c_str(),
              static_cast<long>(error));
  }
}

void RecordStream::NoteWritten(const PendingFrame& frame) {
  Services.Alarms.NoteWrite(frame.Provider, OwnId, frame.Time / 1000,
                            static_cast<std::uint16_t>(frame.Time % 1000), CurrentPath);
  Slots[frame.Slot].LastWritten = frame.Time;
  Rates[frame.Slot].Add(frame.Size, FlushNs());
}

void RecordStream::CountWritten(const PendingFrame& frame) {
  RecordStats& stats = Services.Stats;
  ++stats.Written[frame.Type];
  if ((frame.Flags & kFlagMotion) != 0) ++stats.Motion;
  if ((frame.Flags & kFlagAlarm) != 0) ++stats.Alarm;
  if (frame.Ptz) ++stats.PTZ;
  stats.LastBytes += frame.Size;
}

// The clock is asked once a flush, not once a frame.
std::int64_t RecordStream::FlushNs() {
  if (!SteadyOfFlush) SteadyOfFlush = Services.Platform.clock.SteadyNs();
  return *SteadyOfFlush;
}

}  // namespace qvsvr::kelvo
