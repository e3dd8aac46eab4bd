#include "psinfo/IndexCheck.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

#include "psinfo/IndexFields.h"

namespace psinfo {
namespace {

constexpr std::size_t kFrameCountAt = 20;
constexpr std::uint32_t kRunGapMs = 1001;
constexpr std::size_t kFramesPerWrite = 64;

std::size_t RecordOffset(std::size_t number) {
  return kIndexHead + number * kRecord;
}

struct FrameRecord {
  unsigned stream = 0;
  std::uint8_t info = 0, streamInfo = 0;
  std::uint16_t date = 0;
  std::uint32_t ms = 0, total = 0, previous = 0, next = 0;
  std::uint64_t distance = 0;  // from the first frame

  [[nodiscard]] bool IsValid() const { return stream < kStreams && (previous != 0 || next != 0); }
  [[nodiscard]] bool Tells(const Frame& frame) const {
    return stream == frame.stream && info == frame.info && streamInfo == frame.streamInfo &&
           date == frame.date && ms == frame.ms && total == frame.total;
  }
};

// Sets the group counts, and gives the number of the stream's next frame for each.
std::vector<std::uint32_t> LinkFrames(std::vector<Frame>& frames) {
  std::array<std::uint16_t, kStreams> group{};
  for (Frame& frame : frames) {
    auto& counter = group[frame.stream];
    counter = frame.type < 2 ? std::uint16_t{0} : static_cast<std::uint16_t>(counter + 1);
    frame.groupFrame = counter;
  }
  std::array<std::uint32_t, kStreams> later;
  later.fill(kNone);
  std::vector<std::uint32_t> next(frames.size());
  for (std::size_t n = frames.size(); n-- > 0;) {
    next[n] = std::exchange(later[frames[n].stream], static_cast<std::uint32_t>(n));
  }
  return next;
}

std::vector<Run> RunsOf(const std::vector<Frame>& frames) {
  std::vector<Run> runs;
  std::array<std::optional<Run>, kStreams> open;
  for (const auto& frame : frames) {
    auto& run = open[frame.stream];
    if (run && (run->flags != frame.flags || run->lastDate != frame.date ||
                frame.ms - run->lastMs >= kRunGapMs)) {
      runs.push_back(*run);
      run.reset();
    }
    if (frame.date == 0) continue;
    if (!run) run = Run{frame.stream, frame.flags, frame.date, 0, frame.ms, 0};
    run->lastDate = frame.date;
    run->lastMs = frame.ms;
  }
  for (const auto& run : open) {
    if (run) runs.push_back(*run);
  }
  return runs;
}

Wanted& AddTimes(Wanted& wanted, const Frame& first, const Frame& last) {
  return wanted.Little(2, first.date).Little(2, last.date).Little(4, first.ms).Little(4, last.ms);
}

class Checker {
 public:
  Checker(const Bytes& indexBytes, Expected how, Recording& to)
      : index(indexBytes), closed(how != Expected::Unclosed), recording(to) {}

  void Run() {
    recording.runs = RunsOf(recording.frames);
    next = LinkFrames(recording.frames);
    if (index.size() < kIndexHead) {
      Fault(index.size(), "the index ends inside its head of 1088 bytes");
      return;
    }
    TakeSetup();
    if (LittleAt(index, 0, 4) == 0 || LittleAt(index, 4, 4) != kHead ||
        LittleAt(index, 8, 4) != kRecord || LittleAt(index, 12, 4) != kRecord) {
      Fault(0, "the head has no version or other record sizes");
      return;
    }
    const std::size_t room = (index.size() - kIndexHead) / kRecord;
    const std::size_t count = LittleAt(index, kFrameCountAt, 4);
    if (!closed) {
      CheckUnclosed(count != 0 ? std::min(count, room) : CountRecords(room));
    } else if (count == 0 && room > 0 && RecordAt(0).IsValid()) {
      Fault(kFrameCountAt, "the head counts no frames though there are records: never closed");
      CompareRecords(CountRecords(room));
    } else if (count > room) {
      Fault(kFrameCountAt, "the head counts " + std::to_string(count) +
                               " frames, but there is room for " + std::to_string(room));
      CompareRecords(room);
    } else if (recording.unreadable != 0 || count != recording.frames.size()) {
      CompareRecords(count);
    } else {
      CompareAll();
    }
  }

 private:
  void Fault(std::uint64_t offset, const std::string& rule) { recording.IndexFault(offset, rule); }

  FrameRecord RecordAt(std::size_t number) const {
    const View at = View(index).subspan(RecordOffset(number), kRecord);
    FrameRecord record;
    record.stream = at[0];
    record.info = at[2];
    record.streamInfo = at[3];
    record.total = (at[26] & 1u) << 21 | LittleAt(at, 4, 2) << 5;
    record.date = static_cast<std::uint16_t>(LittleAt(at, 6, 2));
    record.ms = LittleAt(at, 8, 4);
    record.distance = std::uint64_t{LittleAt(at, 12, 4)} * kUnit;
    record.previous = LittleAt(at, 16, 4);
    record.next = LittleAt(at, 20, 4);
    return record;
  }

  // As a reader counts them: the runs behind the records don't begin where the last frame ends.
  std::size_t CountRecords(std::size_t room) const {
    std::size_t count = 0;
    for (std::uint64_t end = 0; count < room; ++count) {
      const FrameRecord record = RecordAt(count);
      if (!record.IsValid() || record.distance != end) break;
      end += record.total;
    }
    return count;
  }

  // Channels and encoders are known from the start; frames tell the low bits of both, those of a
  // file of one input another number as the encoder.
  void TakeSetup() {
    const bool wide = (recording.fileInput & 0x80) != 0;
    for (unsigned n = 0; n < kStreams; ++n) {
      Stream& stream = recording.streams[n];
      stream.channel = index[kHead + n * kRecord + 24];
      stream.encoder = index[kHead + n * kRecord + 26];
      const auto first = std::ranges::find(recording.frames, n, &Frame::stream);
      if (first != recording.frames.end()) {
        if ((stream.channel & 15) != first->channel) {
          stream.channel = static_cast<std::uint8_t>(first->channel);
        }
        if (wide && (stream.encoder & 3) != first->encoder) {
          stream.encoder = static_cast<std::uint8_t>(first->encoder);
        }
      } else if (recording.hasMap && stream.name.empty() && stream.width16 == 0 &&
                 stream.height16 == 0 && stream.type == (n < kVideoStreams ? 128 : 144)) {
        stream.channel = stream.encoder = 0xFF;  // the file has no place for it
      }
    }
  }

  // Media file and index have the same number of frames: every byte is known.
  void CompareAll() {
    Bytes image = Image();
    for (const auto& run : recording.runs) {
      Wanted record;
      record.Big(1, run.stream).Big(1, run.flags).Fill(2).Little(2, run.firstDate);
      record.Little(2, run.lastDate).Little(4, run.firstMs).Little(4, run.lastMs);
      image.insert(image.end(), record.bytes.begin(), record.bytes.end());
    }
    Compare(image);
    if (index.size() != image.size()) {
      Fault(std::min(index.size(), image.size()), "the index has " + std::to_string(index.size()) +
                                                      " bytes and should have " +
                                                      std::to_string(image.size()));
    }
  }

  // Records are on their way before their frames: the last ones may have none, or a part of one.
  void CheckUnclosed(std::size_t count) {
    const std::size_t frames = recording.frames.size();
    if (count < frames) {
      Fault(RecordOffset(count), std::to_string(frames - count) + " frames have no record");
    }
    const std::uint64_t end = recording.mediaSize - recording.unreadable;
    recording.lastFrameCut = count > frames;
    if (recording.lastFrameCut) {
      const FrameRecord cut = RecordAt(frames);
      recording.cutRecords = count - frames - 1;
      if (recording.cutRecords > kFramesPerWrite) {
        Fault(RecordOffset(frames), "more records than one write's have no frames");
      }
      if (recording.firstFrame + cut.distance != end || end + cut.total <= recording.mediaSize) {
        Fault(RecordOffset(frames), "this record's frame should be in the media file");
      }
    } else if (recording.unreadable != 0) {
      recording.MediaFault(end, "no record tells of what is here");
    }
    // What is only known at the end may be missing.
    Bytes image = Image();
    image.resize(std::min(image.size(), index.size()));
    const auto leave = [&](std::size_t at, std::size_t size) {
      std::copy_n(index.data() + at, size, image.data() + at);
    };
    leave(20, 16);
    leave(40, 4);
    for (std::size_t at = kHead; at < kIndexHead; at += kRecord) leave(at, 24), leave(at + 25, 1);
    // A link is patched before the record that it names is written.
    for (std::size_t n = 0; n < std::min(count, frames); ++n) {
      if (next[n] == kNone && RecordAt(n).next >= frames) leave(RecordOffset(n) + 20, 4);
    }
    Compare(image);
  }

  void Compare(const Bytes& image) {
    const std::size_t frames = recording.frames.size();
    const std::size_t common = std::min(index.size(), image.size());
    for (std::size_t offset = 0; offset < common; ++offset) {
      if (index[offset] == image[offset]) continue;
      const std::string field = FieldAt(offset, frames);
      Fault(FieldStart(offset, frames), field + " isn't what the frames say");
      while (offset + 1 < common && FieldAt(offset + 1, frames) == field) ++offset;
    }
  }

  // The index that belongs to the frames, up to the runs.
  Bytes Image() const {
    const auto& frames = recording.frames;
    Wanted wanted;
    wanted.Little(4, 1).Little(4, kHead).Little(4, kRecord).Little(4, kRecord).Little(4, kStreams);
    wanted.Little(4, frames.size());
    if (frames.empty()) {
      wanted.Fill(12);
    } else {
      AddTimes(wanted, frames.front(), frames.back());
    }
    wanted.Little(4, kRunRecord).Little(4, recording.runs.size()).Fill(20);
    for (unsigned n = 0; n < kStreams; ++n) AddStreamRecord(n, wanted);
    std::array<std::uint32_t, kStreams> earlier;
    earlier.fill(kNone);
    for (std::uint32_t n = 0; n < frames.size(); ++n) {
      const Frame& frame = frames[n];
      wanted.Big(1, frame.stream).Fill(1).Big(1, frame.info).Big(1, frame.streamInfo);
      wanted.Little(2, frame.total >> 5).Little(2, frame.date).Little(4, frame.ms);
      wanted.Little(4, (frame.offset - recording.firstFrame) / kUnit);
      wanted.Little(4, std::exchange(earlier[frame.stream], n)).Little(4, next[n]);
      wanted.Little(2, frame.groupFrame).Big(1, frame.total >> 21).Fill(5);
    }
    return std::move(wanted.bytes);
  }

  void AddStreamRecord(unsigned n, Wanted& wanted) const {
    const auto list = recording.Of(n);
    wanted.Little(4, list.size());
    if (list.empty()) {
      wanted.Fill(20);
    } else {
      const auto number = [&](const Frame* frame) { return frame - recording.frames.data(); };
      wanted.Little(4, static_cast<std::uint64_t>(number(list.front())));
      wanted.Little(4, static_cast<std::uint64_t>(number(list.back())));
      AddTimes(wanted, *list.front(), *list.back());
    }
    unsigned flags = 0;
    for (const auto* frame : list) flags |= frame->flags;
    const Stream& stream = recording.streams[n];
    wanted.Big(1, stream.channel).Big(1, flags).Big(1, stream.encoder).Fill(5);
  }

  // Each record against the frame that it points to.
  void CompareRecords(std::size_t count) {
    std::map<std::uint64_t, const Frame*> frames;
    for (const auto& frame : recording.frames) frames.emplace(frame.offset, &frame);
    for (std::size_t number = 0; number < count; ++number) {
      const FrameRecord record = RecordAt(number);
      const std::string name = "frame record " + std::to_string(number);
      const auto found = frames.find(recording.firstFrame + record.distance);
      if (!record.IsValid()) {
        Fault(RecordOffset(number), name + " was never written");
      } else if (found == frames.end()) {
        Fault(RecordOffset(number), name + " points to no readable frame of the media file");
      } else {
        if (!record.Tells(*found->second)) {
          Fault(RecordOffset(number), name + " isn't what its frame says");
        }
        frames.erase(found);
      }
    }
    if (!frames.empty()) {
      Fault(RecordOffset(count),
            std::to_string(frames.size()) + " frames of the media file have no record");
    }
  }

  const Bytes& index;
  const bool closed;
  Recording& recording;
  std::vector<std::uint32_t> next;  // links of the frames
};

}  // namespace

void CheckIndex(const Bytes& index, Expected expected, Recording& recording) {
  Checker(index, expected, recording).Run();
}

}  // namespace psinfo
