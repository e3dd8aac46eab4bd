#include "record/RecordStream.h"

#include <algorithm>
#include <cstring>

#include "host/Log.h"
#include "media/PackedTime.h"
#include "record/ChannelSlot.h"

namespace qvsvr::kelvo {
namespace {

// A ready-made PES packet: what intake reads of its header.
constexpr std::uint32_t kPesHeaderSize = 32;
constexpr std::size_t kPesFrameInfo = 27;
constexpr std::uint8_t kFrameInfoFlags = 0xE0;
constexpr std::uint8_t kFrameTypeMask = 3;

// A group without a following key frame is written as it stands after this time.
constexpr std::int64_t kGroupLimitMs = 5 * 60 * 1000;

}  // namespace

RecordStream::RecordStream(RecordServices& services, std::uint32_t id)
    : OwnId(id),
      StreamId(id),
      Services(services),
      Writer(services.Platform.mediaFiles, services.ClosedTables) {
  ChannelMap.fill(-1);
}

RecordStream::~RecordStream() {
  if (Writer.IsWriting()) EndWriter();
  ForgetFile();
  for (PendingFrame* frame : Run) Services.Core.DecrementReference(frame->Buffer);
  while (PendingFrame* frame = Pending.Front()) Release(frame);
}

bool RecordStream::StreamAddFrame(std::uint32_t provider, void* buffer, std::uint32_t length,
                                  std::uint32_t subCode, const KelvoFrameHeader& header, bool ptz) {
  // Before the new frame comes in, so that it takes no part in the flush it triggers.
  FlushPending();

  const int slot = SlotOf(provider);
  if (slot < 0) {
    ++Services.Stats.Ch;
    return false;
  }
  if (buffer == nullptr) {
    LogPrintf(LogWarning, "frame of provider ID %08X has no buffer", provider);
    return false;
  }
  const qv::kelvo::UtcMs time = qv::kelvo::UtcMs{header.Seconds} * 1000 + header.Milliseconds;
  const bool isPes = (subCode & KELVO_WRITE_SUB_PES) != 0;
  // A packet goes to the file with the time that stands in it.
  if (!isPes && !HasUsableTime(provider, slot, time)) return false;

  PendingFrame* frame = Pending.Allocate();
  frame->Provider = provider;
  frame->Buffer = buffer;
  frame->Size = length;
  frame->Slot = static_cast<std::uint8_t>(slot);
  frame->Ptz = ptz;
  frame->Time = time;
  frame->IsPes = isPes;
  if (!FillFrame(*frame, header)) {
    Pending.Discard(frame);
    ++Services.Stats.PES;
    return false;
  }
  ApplyAlarmAndMotion(*frame);
  Pending.Append(frame);
  return true;
}

// False for a camera whose clock was never set: the writer would refuse its frames, which ends the
// file for all channels. Logs once until the clock is right.
bool RecordStream::HasUsableTime(std::uint32_t provider, int slot, qv::kelvo::UtcMs time) {
  const bool usable = qv::kelvo::IsPackable(time);
  const auto index = static_cast<std::size_t>(slot);
  if (!usable && !BadClocks[index]) {
    LogPrintf(LogWarning, "frames of provider ID %08X dropped: captured before the year 2000",
              provider);
  }
  BadClocks[index] = !usable;
  return usable;
}

// Type, flags and extension. False for a packet without a whole header and start code.
bool RecordStream::FillFrame(PendingFrame& frame, const KelvoFrameHeader& header) {
  if (!frame.IsPes) {
    // Two bits are what a file holds of the type.
    frame.Type = header.FrameType & kFrameTypeMask;
    frame.Flags = header.FrameFlags;
    const std::uint32_t used = header.ExtensionLength & 0xFF;
    frame.ExtensionLength =
        static_cast<std::uint8_t>(std::min<std::size_t>(used, frame.Extension.size()));
    std::memcpy(frame.Extension.data(), header.Extension, frame.ExtensionLength);
    return true;
  }
  if (frame.Size < kPesHeaderSize) return false;
  const auto* packet = static_cast<const std::uint8_t*>(frame.Buffer);
  if (packet[0] != 0 || packet[1] != 0 || packet[2] != 1) return false;
  frame.Type = packet[kPesFrameInfo] & kFrameTypeMask;
  frame.Flags = packet[kPesFrameInfo] & kFrameInfoFlags;
  return true;
}

// Motion begins with a frame and reaches back to those that wait. Alarms begin and end by messages;
// one that has ended still flags frames that were captured before its end.
void RecordStream::ApplyAlarmAndMotion(PendingFrame& frame) {
  ChannelSlot& slot = Slots[frame.Slot];
  std::erase_if(slot.ActiveAlarms,
                [&](const auto& alarm) { return alarm.second && *alarm.second < frame.Time; });
  if (!slot.ActiveAlarms.empty()) frame.Flags |= kFlagAlarm;

  if ((frame.Flags & kFlagMotion) != 0) {
    if (!slot.MotionTime) {
      MarkPending(SubtractMs(frame.Time, slot.PreMotion), frame.Slot, kFlagMotion);
    }
    slot.MotionTime = frame.Time;
  } else if (slot.MotionTime) {
    if (Within(frame.Time, *slot.MotionTime, slot.PostMotion)) {
      frame.Flags |= kFlagMotion;
    } else {
      slot.MotionTime.reset();
    }
  }
}

void RecordStream::FlushPending() {
  SteadyOfFlush.reset();
  FlushSettled();
  WriteRun(Counted::Yes);
}

// Decides from the oldest frame on, and stops at the first one that is open: what is behind it may
// be settled, but frames reach the file in the order in which they came.
void RecordStream::FlushSettled() {
  while (PendingFrame* front = Pending.Front()) {
    if (front == Settled && AwaitsVolume()) return;
    switch (DecideFront(*front, Pending.Back()->Time)) {
      case Fate::Open:
        return;
      case Fate::Write:
        if (AwaitsVolume()) {
          Settled = front;
          return;
        }
        WriteSoon(front, Counted::Yes);
        break;
      case Fate::Drop:
        Drop(front);
        break;
    }
  }
}

// Times are measured against the newest frame, not against the clock: what has been buffered on its
// way is judged as it would have been live, and a silent stream decides nothing. A group is settled
// when neither its key frame nor the next one waits any more: until then an alarm may still reach
// back to its last pictures.
RecordStream::Fate RecordStream::DecideFront(const PendingFrame& front, qv::kelvo::UtcMs newest) {
  // Dependent frames that come to the front were kept with their group.
  if (!front.IsKey()) return Fate::Write;
  const ChannelSlot& slot = Slots[front.Slot];
  if (InWaitingTime(slot, front, newest)) return Fate::Open;

  bool keep = false;
  if (front.Type == kFrameI) {
    const PendingFrame* next = front.NextKey;
    if (next == nullptr) {
      return Within(front.Time, newest, kGroupLimitMs) ? Fate::Open : Fate::Write;
    }
    if (InWaitingTime(slot, *next, newest)) return Fate::Open;
    keep = ThinGroup(front, *next);
  }
  const int hour = HourOf(front);
  if (keep || ShouldRecord(slot, front, hour)) return Fate::Write;
  // Time-lapse goes by what is in the file.
  if (DefaultLapse > 0 || !slot.LapseSchedule.empty()) WriteRun(Counted::Yes);
  return ShouldLapse(slot, front, hour, DefaultLapse) ? Fate::Write : Fate::Drop;
}

// Drops the frames between a key frame and the next one that nothing wants and nothing depends on:
// from the end back to the last one that is wanted all, ahead of it those that no other is made
// from (B). Returns whether one is wanted, which keeps the key frame.
bool RecordStream::ThinGroup(const PendingFrame& front, const PendingFrame& next) {
  const ChannelSlot& slot = Slots[front.Slot];
  bool keep = false;
  for (PendingFrame* frame = next.SlotOlder; frame != &front;) {
    PendingFrame* older = frame->SlotOlder;
    if (ShouldRecord(slot, *frame, HourOf(*frame))) {
      keep = true;
    } else if (!keep || frame->Type >= kFrameB) {
      Drop(frame);
    }
    frame = older;
  }
  return keep;
}

int RecordStream::HourOf(const PendingFrame& frame) {
  return Hours[frame.Slot].HourOfWeek(frame.Time);
}

// Whether a volume may be found soon, so that nothing that is wanted is given up.
bool RecordStream::AwaitsVolume() const {
  return Services.Volumes.Searching() && !OpenTime && ActiveChannels.any();
}

void RecordStream::Drop(PendingFrame* frame) {
  ++Services.Stats.Dropped[frame->Type];
  Release(frame);
}

// Gives the buffer back and forgets the frame.
void RecordStream::Release(PendingFrame* frame) {
  Services.Core.DecrementReference(frame->Buffer);
  Pending.Erase(frame);
}

void RecordStream::MarkPending(qv::kelvo::UtcMs since, int slot, std::uint8_t flagBit) {
  for (PendingFrame* frame = Pending.SlotBack(slot); frame != nullptr && frame->Time >= since;
       frame = frame->SlotOlder) {
    frame->Flags |= flagBit;
  }
}

void RecordStream::DropSlotFrames(int slot) {
  while (PendingFrame* frame = Pending.SlotFront(slot)) Release(frame);
}

void RecordStream::ResetSlot(int slot) {
  DropSlotFrames(slot);
  ChannelSlot& channel = Slots[static_cast<std::size_t>(slot)];
  ChannelSlot empty;
  empty.BufSizeSamples = channel.BufSizeSamples;
  empty.SampleRate = channel.SampleRate;
  channel = std::move(empty);
  std::ranges::replace(ChannelMap, slot, -1);
}

// Both are in the order of arrival, so that one walk over what pends here finds all places. Times
// stand in for the arrival, which isn't known across streams.
void RecordStream::TakeSlotFrames(RecordStream& from, int fromSlot, int slot) {
  PendingFrame* next = Pending.Front();
  if (PendingFrame* newest = Pending.SlotBack(slot)) next = newest->Newer;
  while (PendingFrame* frame = from.Pending.SlotFront(fromSlot)) {
    while (next != nullptr && next->Time <= frame->Time) next = next->Newer;
    PendingFrame* taken = Pending.Copy(*frame);
    taken->Slot = static_cast<std::uint8_t>(slot);
    Pending.InsertAhead(next, taken);
    from.Pending.Erase(frame);
  }
}

void RecordStream::MapChannel(std::uint32_t lowByte, int slot) {
  std::ranges::replace(ChannelMap, slot, -1);
  ChannelMap[lowByte] = slot;
}

int RecordStream::SlotOf(std::uint32_t provider) const {
  return ChannelMap[provider & 0xFF];
}

void RecordStream::RefreshDefaultLapse() {
  DefaultLapse = Services.FileSystem.Lapse().timeLapse;
}

int RecordStream::EffectiveInput(int slot) const {
  const ChannelSlot& channel = Slots[static_cast<std::size_t>(slot)];
  if (channel.Input < 0 || !qv::kelvo::IsWideInput(Layout) || Layout == qv::kelvo::kWholeDevice)
    return channel.Input;
  // In 64 bits and clamped: both numbers come from the configuration.
  const std::int64_t input = channel.Input + std::int64_t{channel.Encoder} * 16;
  return static_cast<int>(std::clamp<std::int64_t>(input, INT32_MIN, INT32_MAX));
}

std::uint64_t RecordStream::TakeWrittenBytes() {
  std::uint64_t sum = 0;
  for (RateMeter& meter : Rates) {
    std::uint64_t bytes = 0;
    std::uint64_t milliseconds = 0;
    if (meter.Read(bytes, milliseconds, true)) sum += bytes;
  }
  return sum;
}

}  // namespace qvsvr::kelvo
