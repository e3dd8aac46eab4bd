#include "tests/support/PsParser.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace testsupport {
namespace {

constexpr std::size_t kFirstFrame = 1978, kFileInput = 34, kEntries = 122, kEntrySize = 58;
constexpr std::size_t kPesHeader = 32, kIndexHead = 64, kRecord = 32, kFirstRecord = 1088;
constexpr std::uint32_t kNone = 0xFFFFFFFF;

std::int64_t DaysSince1970(int date) {
  const std::chrono::sys_days day =
      std::chrono::year(2000 + (date >> 9)) / (date >> 5 & 15) / (date & 31);
  return day.time_since_epoch().count();
}

std::uint32_t Little(const Bytes& data, std::size_t at, unsigned width) {
  std::uint32_t value = 0;
  for (unsigned i = 0; i < width; ++i) value |= std::uint32_t{data[at + i]} << (8 * i);
  return value;
}

// What a file must hold, put together from what was read out of it.
struct Wanted {
  Bytes bytes;

  Wanted& Fill(std::size_t count, std::uint8_t value = 0) {
    bytes.insert(bytes.end(), count, value);
    return *this;
  }
  Wanted& Big(unsigned width, std::uint64_t value) {
    for (unsigned i = width; i-- > 0;) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    return *this;
  }
  Wanted& Little(unsigned width, std::uint64_t value) {
    for (unsigned i = 0; i < width; ++i) {
      bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }
    return *this;
  }
  Wanted& TimeStamp(std::uint64_t t) {
    return Big(1, 0x31 | (t >> 29 & 0x0E))
        .Big(1, t >> 22)
        .Big(1, t >> 14 | 1)
        .Big(1, t >> 7)
        .Big(1, t << 1 | 1);
  }
  Wanted& Size(std::uint32_t size) {
    return Big(1, 0x80 | size >> 15).Big(1, (size >> 7 & 0xF0) | 8 | (size >> 8 & 7)).Big(1, size);
  }
  Wanted& Times(const PsFrame& first, const PsFrame& last) {
    return Little(2, first.date).Little(2, last.date).Little(4, first.ms).Little(4, last.ms);
  }
};

class Reader {
 public:
  Reader(const std::string& path, PsEnd end) : closed(end == PsEnd::Closed) {
    result.path = path;
    media = Slurp(path, false);
    // A writer that ended while it made the pair may have left the media file alone.
    index = Slurp(path + "i", !closed && media.size() <= kFirstFrame);
  }

  PsRecording Run() {
    // A killed writer may not have come further; then there is nothing to check.
    if (media.size() < kFirstFrame) {
      Expect(!closed, "the media file has no complete map");
    } else {
      ReadMap();
      if (index.size() < kFirstRecord) {
        Expect(!closed && media.size() == kFirstFrame, "the index file has no complete head");
      } else {
        ReadFrames();
        result.runs = Runs();
        CheckIndex();
      }
    }
    return std::move(result);
  }

 private:
  Bytes Slurp(const std::string& path, bool mayBeMissing) {
    std::ifstream file(path, std::ios::binary);
    Expect(file.good() || mayBeMissing, "can't open " + path);
    return Bytes(std::istreambuf_iterator<char>(file), {});
  }

  void Expect(bool holds, const std::string& text) {
    constexpr std::size_t kMost = 20;
    if (!holds && result.faults.size() < kMost) result.faults.push_back(text);
  }
  void ExpectBytes(const char* file, const Bytes& data, std::size_t at, const Bytes& wanted) {
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (at + i < data.size() && data[at + i] == wanted[i]) continue;
      Expect(false, std::string(file) + " byte " + std::to_string(at + i) + " isn't " +
                        std::to_string(wanted[i]));
    }
  }
  static std::string Name(const char* what, std::size_t n) {
    return std::string(what) + " " + std::to_string(n);
  }

  void ReadMap() {
    result.fileInput = media[kFileInput];
    Wanted map;
    map.Big(8, 0x000001BA44000400).Big(8, 0x0401000003FAFFFF);
    map.Big(8, 0x000001BC07A4E2FF).Big(2, 94).Fill(8, 0xFF).Big(1, result.fileInput).Fill(51);
    map.Big(1, 2).Fill(33).Big(2, 32 * kEntrySize);
    for (unsigned n = 0; n < 32; ++n) {
      auto& stream = result.streams[n];
      const bool video = n < 16;
      const std::uint8_t* const entry = &media[kEntries + n * kEntrySize];
      stream.type = entry[0];
      stream.id = entry[1];
      const unsigned base = video ? (stream.type == 128 ? 0xD0u : 0xE0u) : 0xC0u;
      map.Big(1, stream.type).Big(1, base + n % 16).Big(2, kEntrySize - 4);
      if (video) {
        stream.width16 = entry[4];
        stream.height16 = entry[5];
        map.Big(1, stream.width16).Big(1, stream.height16).Big(2, 0xFFFF);
      } else {
        stream.bufSizeSamples = static_cast<std::uint16_t>(entry[4] << 8 | entry[5]);
        stream.sampleRate = static_cast<std::uint16_t>(entry[6] << 8 | entry[7]);
        map.Big(2, stream.bufSizeSamples).Big(2, stream.sampleRate);
      }
      stream.name.assign(entry + 26, std::find(entry + 26, entry + 58, 0));
      map.Fill(18);
      map.bytes.insert(map.bytes.end(), stream.name.begin(), stream.name.end());
      map.Fill(32 - stream.name.size());
    }
    ExpectBytes("media", media, 0, map.bytes);
  }

  bool ValidRecord(std::size_t at) const {
    if (at + kRecord > index.size() || index[at] >= 32) return false;
    return Little(index, at + 16, 4) != 0 || Little(index, at + 20, 4) != 0;
  }

  void ReadFrames() {
    // A closed file says how many there are; in another one the records end where they end.
    const std::uint32_t count = Little(index, 20, 4);
    const auto more = [&](std::size_t n) {
      return closed || count != 0 ? n < count : ValidRecord(kFirstRecord + n * kRecord);
    };
    std::uint64_t offset = kFirstFrame;
    for (std::uint32_t n = 0; more(n); ++n) {
      if (!ValidRecord(kFirstRecord + n * kRecord)) {
        Expect(false, Name("record", n) + " isn't valid");
        break;
      }
      PsFrame frame = ReadRecord(n);
      Expect(frame.offset == offset, Name("frame", n) + " isn't behind the one before");
      if (frame.total < kPesHeader || frame.offset + frame.total > media.size()) {
        result.lastFrameCut = true;
        Expect(!closed, Name("frame", n) + " isn't in the media file");
        while (more(n + 1) && result.cutRecords <= 64) ++n, ++result.cutRecords;
        Expect(!more(n + 1), "more records than one run has no frames");
        break;
      }
      ReadPes(frame);
      offset += frame.total;
      result.frames.push_back(std::move(frame));
    }
    Expect(result.lastFrameCut || media.size() == offset, "the media file doesn't end in a frame");
  }

  PsFrame ReadRecord(std::uint32_t n) const {
    const std::size_t at = kFirstRecord + n * kRecord;
    PsFrame frame;
    frame.index = n;
    frame.stream = index[at];
    frame.flags = index[at + 2] & 0xE0u;
    frame.type = index[at + 2] & 3u;
    frame.encoder = (index[at + 3] >> 4) & 3u;
    frame.channel = index[at + 3] & 15u;
    frame.total = (index[at + 26] & 1u) << 21 | Little(index, at + 4, 2) << 5;
    frame.date = static_cast<std::uint16_t>(Little(index, at + 6, 2));
    frame.ms = Little(index, at + 8, 4);
    frame.offset = kFirstFrame + std::uint64_t{Little(index, at + 12, 4)} * 32;
    frame.previous = Little(index, at + 16, 4);
    frame.next = Little(index, at + 20, 4);
    frame.groupFrame = static_cast<std::uint16_t>(Little(index, at + 24, 2));
    frame.timeMs = DaysSince1970(frame.date) * 86'400'000 + frame.ms;
    return frame;
  }

  static std::uint8_t FrameInfo(const PsFrame& frame) {
    return static_cast<std::uint8_t>(frame.flags | 0x1C | frame.type);
  }
  static std::uint8_t StreamInfo(const PsFrame& frame) {
    return static_cast<std::uint8_t>(0xC0 | frame.encoder << 4 | frame.channel);
  }

  void ReadPes(PsFrame& frame) {
    const std::size_t at = frame.offset;
    const unsigned user = std::max(media[at + 8] - 23, 0), pad = media[at + 29] & 31u;
    const bool fits = user <= 116 && kPesHeader + user + pad <= frame.total;
    Expect(fits, Name("frame", frame.index) + " doesn't hold its parts");
    if (!fits) return;
    Wanted header;
    header.Big(3, 1).Big(1, result.streams[frame.stream].id).Big(2, frame.total - 6).Big(2, 0x80C1);
    header.Big(1, user + 23).TimeStamp(frame.ms * std::uint64_t{90});
    header.TimeStamp(frame.ms * std::uint64_t{90}).Big(2, 0x0F80 | (user + 11));
    if (result.frames.empty()) {
      header.Big(3, 0xFFFFFF);
    } else {
      header.Size(result.frames.back().total);
    }
    header.Size(frame.total).Big(1, FrameInfo(frame)).Big(1, StreamInfo(frame));
    header.Big(1, 0xC0 | pad).Little(2, frame.date);
    ExpectBytes("media", media, at, header.bytes);
    const auto data = media.begin() + static_cast<std::ptrdiff_t>(at + kPesHeader);
    const auto end = media.begin() + static_cast<std::ptrdiff_t>(at + frame.total - pad);
    frame.payload.assign(data + user, end);
    ExpectBytes("media", media, at + frame.total - pad, Bytes(pad));
    for (auto d = data; d + 4 <= data + user; d += 4) {
      Expect((d[1] & 1) == 1 && d[3] == 1, Name("frame", frame.index) + " has bad user data");
      frame.userData.push_back(d[0]);
      frame.userData.push_back(static_cast<std::uint8_t>((d[1] & 0xFE) | d[2] >> 7));
      frame.userData.push_back(static_cast<std::uint8_t>(d[2] << 1 & 0xFC));
    }
  }

  std::vector<PsRun> Runs() const {
    std::vector<PsRun> runs;
    std::array<std::optional<PsRun>, 32> open;
    for (const auto& frame : result.frames) {
      auto& run = open[frame.stream];
      if (run && (run->flags != frame.flags || run->lastDate != frame.date ||
                  frame.ms - run->lastMs >= 1001)) {
        runs.push_back(*run);
        run.reset();
      }
      if (!run) run = PsRun{frame.stream, frame.flags, frame.date, 0, frame.ms, 0};
      run->lastDate = frame.date;
      run->lastMs = frame.ms;
    }
    for (const auto& run : open) {
      if (run) runs.push_back(*run);
    }
    return runs;
  }

  // The whole index follows from the frames.
  void CheckIndex() {
    const auto& frames = result.frames;
    Wanted wanted;
    wanted.Little(4, 1).Little(4, 64).Little(4, 32).Little(4, 32).Little(4, 32);
    wanted.Little(4, frames.size());
    if (frames.empty()) {
      wanted.Fill(12);
    } else {
      wanted.Times(frames.front(), frames.back());
    }
    wanted.Little(4, 16).Little(4, result.runs.size()).Fill(20);
    for (unsigned n = 0; n < 32; ++n) AddStreamRecord(n, wanted);
    AddFrameRecords(wanted);
    if (closed) {
      for (const auto& run : result.runs) {
        wanted.Big(1, run.stream).Big(1, run.flags).Fill(2);
        wanted.Little(2, run.firstDate).Little(2, run.lastDate);
        wanted.Little(4, run.firstMs).Little(4, run.lastMs);
      }
      Expect(index.size() == wanted.bytes.size(), "the index has another size");
    } else {
      // What is only known at the end may be missing.
      std::copy_n(index.begin() + 20, 16, wanted.bytes.begin() + 20);
      std::copy_n(index.begin() + 40, 4, wanted.bytes.begin() + 40);
      for (std::ptrdiff_t at = kIndexHead; at < std::ptrdiff_t{kFirstRecord}; at += 32) {
        std::copy_n(index.begin() + at, 26, wanted.bytes.begin() + at);
      }
    }
    ExpectBytes("index", index, 0, wanted.bytes);
  }

  void AddStreamRecord(unsigned n, Wanted& wanted) {
    auto& stream = result.streams[n];
    const std::size_t at = kIndexHead + n * 32;
    stream.channel = index[at + 24];
    stream.encoder = index[at + 26];
    const auto list = result.Of(n);
    stream.frames = static_cast<std::uint32_t>(list.size());
    wanted.Little(4, list.size());
    if (list.empty()) {
      wanted.Fill(20);
    } else {
      wanted.Little(4, list.front()->index).Little(4, list.back()->index);
      wanted.Times(*list.front(), *list.back());
    }
    unsigned flags = 0;
    for (const auto* frame : list) flags |= frame->flags;
    wanted.Big(1, stream.channel).Big(1, flags).Big(1, stream.encoder).Fill(5);
  }

  void AddFrameRecords(Wanted& wanted) const {
    const auto& frames = result.frames;
    std::array<std::uint32_t, 32> earlier, later;
    std::array<std::uint16_t, 32> group{};
    earlier.fill(kNone);
    later.fill(kNone);
    std::vector<std::uint32_t> next(frames.size());
    for (std::size_t n = frames.size(); n-- > 0;) {
      next[n] = std::exchange(later[frames[n].stream], frames[n].index);
      // A link is patched before the record that it names is written.
      if (next[n] == kNone && !closed && frames[n].next >= frames.size()) next[n] = frames[n].next;
    }
    for (const auto& frame : frames) {
      auto& counter = group[frame.stream];
      counter = frame.type < 2 ? std::uint16_t{0} : static_cast<std::uint16_t>(counter + 1);
      wanted.Big(1, frame.stream).Fill(1).Big(1, FrameInfo(frame)).Big(1, StreamInfo(frame));
      wanted.Little(2, frame.total >> 5).Little(2, frame.date).Little(4, frame.ms);
      wanted.Little(4, (frame.offset - kFirstFrame) / 32);
      wanted.Little(4, std::exchange(earlier[frame.stream], frame.index));
      wanted.Little(4, next[frame.index]).Little(2, counter).Big(1, frame.total >> 21).Fill(5);
    }
  }

  const bool closed;
  Bytes media, index;
  PsRecording result;
};

}  // namespace

std::vector<const PsFrame*> PsRecording::Of(unsigned stream) const {
  std::vector<const PsFrame*> list;
  for (const auto& frame : frames) {
    if (frame.stream == stream) list.push_back(&frame);
  }
  return list;
}

PsRecording ReadPs(const std::string& path, PsEnd end) {
  return Reader(path, end).Run();
}

}  // namespace testsupport
