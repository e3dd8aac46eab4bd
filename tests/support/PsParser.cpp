#include "tests/support/PsParser.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace testsupport {
namespace {

constexpr std::size_t kMapOffset = 16, kMapSize = 1962, kFirstFrame = 1978;
constexpr std::size_t kEntriesOffset = 106, kEntrySize = 58;
constexpr std::size_t kPesHeader = 32;
constexpr std::size_t kIndexHead = 64, kRecord = 32, kRun = 16, kFirstRecord = 1088;
constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr std::size_t kMostFaults = 20;

std::int64_t DaysSince1970(unsigned date) {
  std::int64_t year = 2000 + (date >> 9);
  const std::int64_t month = (date >> 5) & 15, day = date & 31;
  // Years that begin in March, so that the leap day is the last one.
  year -= month <= 2 ? 1 : 0;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear - 719468;
}

class Reader {
 public:
  Reader(const std::string& path, PsEnd end) : closed(end == PsEnd::Closed) {
    result.path = path;
    media = Slurp(path, false);
    // A writer that ended while it made the pair may have left the media file alone.
    index = Slurp(path + "i", !closed && media.size() <= kFirstFrame);
  }

  PsRecording Run() {
    if (ReadMap() && ReadIndexHead()) {
      ReadFrames();
      CheckLinks();
      CheckTotals();
      CheckRuns();
    }
    return std::move(result);
  }

 private:
  Bytes Slurp(const std::string& path, bool mayBeMissing) {
    std::ifstream file(path, std::ios::binary);
    if (!file && !mayBeMissing) Fault("can't open " + path);
    return Bytes(std::istreambuf_iterator<char>(file), {});
  }

  void Fault(const std::string& text) {
    if (result.faults.size() < kMostFaults) result.faults.push_back(text);
  }
  void Expect(bool holds, const std::string& text) {
    if (!holds) Fault(text);
  }
  template <class A, class B>
  void Equal(const std::string& what, A found, B wanted) {
    if (static_cast<std::uint64_t>(found) != static_cast<std::uint64_t>(wanted)) {
      Fault(what + " is " + std::to_string(found) + ", not " + std::to_string(wanted));
    }
  }
  static std::string Name(const char* what, std::size_t n) {
    return std::string(what) + " " + std::to_string(n);
  }

  // Both read 0 behind the end; callers check the length where it matters.
  static std::uint32_t Little(const Bytes& data, std::size_t at, unsigned width) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < width; ++i) value |= std::uint32_t{Byte(data, at + i)} << (8 * i);
    return value;
  }
  static std::uint32_t Big(const Bytes& data, std::size_t at, unsigned width) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < width; ++i) value = value << 8 | Byte(data, at + i);
    return value;
  }
  static std::uint8_t Byte(const Bytes& data, std::size_t at) {
    return at < data.size() ? data[at] : std::uint8_t{0};
  }

  void Zeroes(const std::string& what, const Bytes& data, std::size_t from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      if (Byte(data, from + i) != 0) {
        Fault(what + ": byte " + std::to_string(from + i) + " isn't 0");
        return;
      }
    }
  }

  bool ReadMap() {
    if (media.size() < kFirstFrame) {
      // A killed writer may not have come further; then there is nothing to check.
      Expect(!closed, "the media file has no complete map");
      return false;
    }
    static constexpr std::uint8_t kPack[16] = {0, 0, 1, 0xBA, 0x44, 0,    4,    0,
                                               4, 1, 0, 0,    3,    0xFA, 0xFF, 0xFF};
    Expect(std::equal(std::begin(kPack), std::end(kPack), media.begin()), "pack header differs");
    const std::size_t m = kMapOffset;
    Equal("map start code", Big(media, m, 4), 0x1BCu);
    Equal("map length and version", Big(media, m + 4, 4), (kMapSize - 6) << 16 | 0xE2FFu);
    Equal("program info length", Big(media, m + 8, 2), 94u);
    for (std::size_t i = 10; i < 18; ++i) Equal(Name("map byte", i), Byte(media, m + i), 0xFFu);
    result.fileInput = media[m + 18];
    Zeroes("map", media, m + 19, 51);
    Equal("format level", Byte(media, m + 70), 2u);
    Zeroes("map", media, m + 71, 33);
    Equal("stream map length", Big(media, m + 104, 2), 32 * kEntrySize);
    for (unsigned n = 0; n < 32; ++n) ReadEntry(n, m + kEntriesOffset + n * kEntrySize);
    return true;
  }

  void ReadEntry(unsigned n, std::size_t at) {
    auto& stream = result.streams[n];
    const bool video = n < 16;
    const auto name = Name("stream entry", n);
    stream.type = media[at];
    stream.id = media[at + 1];
    const unsigned base = video ? (stream.type == 128 ? 0xD0u : 0xE0u) : 0xC0u;
    Equal(name + " id", stream.id, base + n % 16);
    Equal(name + " info length", Big(media, at + 2, 2), kEntrySize - 4);
    if (video) {
      stream.width16 = media[at + 4];
      stream.height16 = media[at + 5];
      Equal(name + " bytes 6 and 7", Big(media, at + 6, 2), 0xFFFFu);
    } else {
      stream.bufSizeSamples = static_cast<std::uint16_t>(Big(media, at + 4, 2));
      stream.sampleRate = static_cast<std::uint16_t>(Big(media, at + 6, 2));
    }
    Zeroes(name, media, at + 8, 18);
    const auto* text = reinterpret_cast<const char*>(&media[at + 26]);
    stream.name.assign(text, std::find(text, text + 32, '\0'));
    Zeroes(name + " name", media, at + 26 + stream.name.size(), 32 - stream.name.size());
  }

  bool ReadIndexHead() {
    if (index.size() < kFirstRecord) {
      Expect(!closed && media.size() == kFirstFrame, "the index file has no complete head");
      return false;
    }
    Equal("index version", Little(index, 0, 4), 1u);
    Equal("index head size", Little(index, 4, 4), kIndexHead);
    Equal("stream record size", Little(index, 8, 4), 32u);
    Equal("frame record size", Little(index, 12, 4), kRecord);
    Equal("stream count", Little(index, 16, 4), 32u);
    Equal("run record size", Little(index, 36, 4), kRun);
    Zeroes("index head", index, 44, 20);
    headCount = Little(index, 20, 4);
    headRuns = Little(index, 40, 4);
    return true;
  }

  bool ValidRecord(std::size_t at) const {
    if (at + kRecord > index.size() || index[at] >= 32) return false;
    return Little(index, at + 16, 4) != 0 || Little(index, at + 20, 4) != 0;
  }

  void ReadFrames() {
    std::uint64_t offset = kFirstFrame;
    std::uint32_t previousTotal = kNone;
    for (std::uint32_t n = 0;; ++n) {
      const std::size_t at = kFirstRecord + n * kRecord;
      // A closed file says how many there are; in another one the records end where they end.
      const bool more = closed || headCount != 0 ? n < headCount : ValidRecord(at);
      if (!more) break;
      if (!ValidRecord(at)) {
        Fault(Name("record", n) + " isn't valid");
        break;
      }
      PsFrame frame = ReadRecord(n, at);
      Equal(Name("frame", n) + " offset", frame.offset, offset);
      if (frame.total < kPesHeader || frame.offset + frame.total > media.size()) {
        result.lastFrameCut = true;
        Expect(!closed, Name("frame", n) + " isn't in the media file");
        const bool last = headCount != 0 ? n + 1 == headCount : !ValidRecord(at + kRecord);
        Expect(last, Name("frame", n) + " is cut but not the last");
        break;
      }
      ReadPes(frame, previousTotal);
      previousTotal = frame.total;
      offset += frame.total;
      result.frames.push_back(std::move(frame));
    }
    if (!result.lastFrameCut) Equal("media size", media.size(), offset);
    if (closed) {
      Equal("index size", index.size(), kFirstRecord + headCount * kRecord + headRuns * kRun);
    }
  }

  PsFrame ReadRecord(std::uint32_t n, std::size_t at) {
    PsFrame frame;
    frame.index = n;
    frame.stream = index[at];
    Zeroes(Name("record", n), index, at + 1, 1);
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
    Zeroes(Name("record", n), index, at + 27, 5);
    frame.timeMs = DaysSince1970(frame.date) * 86'400'000 + frame.ms;
    return frame;
  }

  std::uint32_t ProtectedSize(const std::string& what, std::size_t at) {
    const std::uint32_t a = media[at], b = media[at + 1], c = media[at + 2];
    Expect((a & 0x80) != 0 && (b & 8) != 0, what + " has no marker bits");
    return c | (b & 7) << 8 | (b >> 4) << 11 | (a & 0x7F) << 15;
  }

  std::uint64_t TimeStamp(const std::string& what, std::size_t at) {
    const std::uint64_t a = media[at], b = media[at + 1], c = media[at + 2], d = media[at + 3],
                        e = media[at + 4];
    Expect((a & 0xF1) == 0x31 && (c & 1) == 1 && (e & 1) == 1, what + " has wrong markers");
    return (a & 0x0E) << 29 | b << 22 | (c & 0xFE) << 14 | d << 7 | e >> 1;
  }

  void ReadPes(PsFrame& frame, std::uint32_t previousTotal) {
    const std::size_t at = frame.offset;
    const auto name = Name("frame", frame.index);
    Equal(name + " start code", Big(media, at, 3), 1u);
    Equal(name + " stream id", media[at + 3], result.streams[frame.stream].id);
    Equal(name + " PES length", Big(media, at + 4, 2), (frame.total - 6) & 0xFFFF);
    Equal(name + " bytes 6 and 7", Big(media, at + 6, 2), 0x80C1u);
    const unsigned user = media[at + 8] >= 23 ? media[at + 8] - 23u : 0u;
    Equal(name + " header length", media[at + 8], user + 23);
    Expect(user <= 116, name + " has too much user data");
    Equal(name + " PTS", TimeStamp(name + " PTS", at + 9), std::uint64_t{frame.ms} * 90);
    Equal(name + " DTS", TimeStamp(name + " DTS", at + 14), std::uint64_t{frame.ms} * 90);
    Equal(name + " byte 19", media[at + 19], 0x0Fu);
    Equal(name + " extension length", media[at + 20], 0x80 | (user + 11));
    const bool first = previousTotal == kNone;
    Equal(name + " previous size",
          first ? Big(media, at + 21, 3) : ProtectedSize(name + " previous size", at + 21),
          first ? 0xFFFFFFu : previousTotal);
    Equal(name + " size", ProtectedSize(name + " size", at + 24), frame.total);
    Equal(name + " frame info", media[at + 27], frame.flags | 0x1C | frame.type);
    Equal(name + " stream info", media[at + 28], 0xC0 | frame.encoder << 4 | frame.channel);
    Equal(name + " pad marker", media[at + 29] & 0xE0u, 0xC0u);
    Equal(name + " date", Little(media, at + 30, 2), frame.date);
    Expect(frame.total % 32 == 0, name + " isn't a multiple of 32 long");
    const unsigned pad = media[at + 29] & 31u;
    if (kPesHeader + user + pad > frame.total) {
      Fault(name + " is shorter than its parts");
      return;
    }
    const std::size_t begin = at + kPesHeader + user;
    const std::size_t end = at + frame.total - pad;
    frame.payload.assign(media.begin() + static_cast<std::ptrdiff_t>(begin),
                         media.begin() + static_cast<std::ptrdiff_t>(end));
    Zeroes(name + " padding", media, end, pad);
    ReadUserData(frame, at + kPesHeader, user);
  }

  void ReadUserData(PsFrame& frame, std::size_t at, unsigned size) {
    for (unsigned i = 0; i + 4 <= size; i += 4) {
      const unsigned a = media[at + i], b = media[at + i + 1], c = media[at + i + 2];
      Equal(Name("frame", frame.index) + " triple end", media[at + i + 3], 1u);
      frame.userData.push_back(static_cast<std::uint8_t>(a));
      frame.userData.push_back(static_cast<std::uint8_t>((b & 0xFE) | c >> 7));
      frame.userData.push_back(static_cast<std::uint8_t>(c << 1 & 0xFC));
    }
  }

  void CheckLinks() {
    std::array<std::uint32_t, 32> last;
    std::array<std::uint16_t, 32> group{};
    last.fill(kNone);
    const auto count = static_cast<std::uint32_t>(result.frames.size());
    for (auto& frame : result.frames) {
      const auto name = Name("record", frame.index);
      Equal(name + " prev", frame.previous, last[frame.stream]);
      if (last[frame.stream] != kNone) {
        Equal(Name("record", last[frame.stream]) + " next", result.frames[last[frame.stream]].next,
              frame.index);
      }
      last[frame.stream] = frame.index;
      auto& counter = group[frame.stream];
      counter = frame.type < 2 ? std::uint16_t{0} : static_cast<std::uint16_t>(counter + 1);
      Equal(name + " group frame", frame.groupFrame, counter);
    }
    for (const auto n : last) {
      if (n == kNone) continue;
      // The link is patched before the record that it names is written.
      const auto next = result.frames[n].next;
      Expect(next == kNone || (!closed && next == count),
             Name("record", n) + " is its stream's last but links to " + std::to_string(next));
    }
  }

  void CheckTotals() {
    struct Total {
      std::uint32_t frames = 0, first = 0, last = 0, flags = 0;
    };
    std::array<Total, 32> totals{};
    for (const auto& frame : result.frames) {
      auto& total = totals[frame.stream];
      if (total.frames++ == 0) total.first = frame.index;
      total.last = frame.index;
      total.flags |= frame.flags;
    }
    for (unsigned n = 0; n < 32; ++n) {
      const std::size_t at = kIndexHead + n * 32;
      auto& stream = result.streams[n];
      const auto name = Name("stream record", n);
      stream.channel = index[at + 24];
      stream.encoder = index[at + 26];
      stream.frames = totals[n].frames;
      Zeroes(name, index, at + 27, 5);
      if (!closed) continue;
      Equal(name + " count", Little(index, at, 4), totals[n].frames);
      if (totals[n].frames == 0) continue;
      Equal(name + " first", Little(index, at + 4, 4), totals[n].first);
      Equal(name + " last", Little(index, at + 8, 4), totals[n].last);
      CheckTimes(name, at + 12, at + 14, at + 16, at + 20, result.frames[totals[n].first],
                 result.frames[totals[n].last]);
      Equal(name + " flags", index[at + 25], totals[n].flags);
    }
    if (closed && !result.frames.empty()) {
      CheckTimes("index head", 24, 26, 28, 32, result.frames.front(), result.frames.back());
    }
  }

  void CheckTimes(const std::string& name, std::size_t firstDate, std::size_t lastDate,
                  std::size_t firstMs, std::size_t lastMs, const PsFrame& first,
                  const PsFrame& last) {
    Equal(name + " first date", Little(index, firstDate, 2), first.date);
    Equal(name + " last date", Little(index, lastDate, 2), last.date);
    Equal(name + " first ms", Little(index, firstMs, 4), first.ms);
    Equal(name + " last ms", Little(index, lastMs, 4), last.ms);
  }

  std::vector<PsRun> ExpectedRuns() const {
    std::vector<PsRun> runs;
    std::array<std::optional<PsRun>, 32> open;
    for (const auto& frame : result.frames) {
      auto& run = open[frame.stream];
      if (run && (run->flags != frame.flags || run->lastDate != frame.date ||
                  frame.ms - run->lastMs >= 1001)) {
        runs.push_back(*run);
        run.reset();
      }
      if (!run) run = PsRun{frame.stream, 0, frame.date, 0, frame.ms, 0};
      run->flags |= frame.flags;
      run->lastDate = frame.date;
      run->lastMs = frame.ms;
    }
    for (const auto& run : open) {
      if (run) runs.push_back(*run);
    }
    return runs;
  }

  void CheckRuns() {
    const auto wanted = ExpectedRuns();
    if (!closed) {
      result.runs = wanted;
      return;
    }
    for (std::uint32_t n = 0; n < headRuns; ++n) {
      const std::size_t at = kFirstRecord + headCount * kRecord + n * kRun;
      Zeroes(Name("run", n), index, at + 2, 2);
      result.runs.push_back({Byte(index, at), Byte(index, at + 1),
                             static_cast<std::uint16_t>(Little(index, at + 4, 2)),
                             static_cast<std::uint16_t>(Little(index, at + 6, 2)),
                             Little(index, at + 8, 4), Little(index, at + 12, 4)});
    }
    Equal("run count", headRuns, wanted.size());
    for (std::size_t n = 0; n < std::min(wanted.size(), result.runs.size()); ++n) {
      Expect(result.runs[n] == wanted[n], Name("run", n) + " differs from the frames");
    }
  }

  const bool closed;
  Bytes media, index;
  std::uint32_t headCount = 0, headRuns = 0;
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
