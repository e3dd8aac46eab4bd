#include "psinfo/MediaWalk.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace psinfo {
namespace {

constexpr std::uint32_t kMaxTotal = 4194272;
constexpr std::uint64_t kTicksPerMs = 90, kMsPerDay = 86'400'000;
// As 24 bits hold the size of the frame before the first one; 0 where it isn't known.
constexpr std::uint32_t kBeforeFirst = 0x3FFFFF, kUnknown = 0;

bool StartsFrame(View bytes) {
  return bytes.size() >= 3 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1;
}

std::uint32_t SizeAt(View bytes, std::size_t at) {
  return (bytes[at] & 0x7Fu) << 15 | (bytes[at + 1] & 0xF0u) << 7 | (bytes[at + 1] & 7u) << 8 |
         bytes[at + 2];
}

std::uint64_t TimeStampAt(View bytes, std::size_t at) {
  return std::uint64_t{bytes[at] & 0x0Eu} << 29 | std::uint64_t{bytes[at + 1]} << 22 |
         std::uint64_t{bytes[at + 2] & 0xFEu} << 14 | std::uint64_t{bytes[at + 3]} << 7 |
         bytes[at + 4] >> 1;
}

bool IsSize(std::uint32_t total) {
  return total != 0 && total % kUnit == 0 && total <= kMaxTotal;
}

bool IsDate(std::uint16_t date) {
  const unsigned month = date >> 5 & 15;
  return month >= 1 && month <= 12 && (date & 31) != 0;
}

std::int64_t DaysSince1970(std::uint16_t date) {
  const std::chrono::sys_days first = std::chrono::year(2000 + (date >> 9)) / (date >> 5 & 15) / 1;
  return first.time_since_epoch().count() + (date & 31) - 1;
}

std::string TextAt(View bytes, std::size_t at) {
  const View field = bytes.subspan(at, 32);
  return {field.begin(), std::ranges::find(field, 0)};
}

class Walker {
 public:
  Walker(qv::kelvo::MediaFile& mediaFile, std::uint64_t fileSize, Expected how, Recording& to)
      : file(mediaFile), size(fileSize), expected(how), recording(to) {}

  void Run() {
    recording.mediaSize = size;
    ReadHead();
    for (std::uint64_t at = recording.firstFrame; at < size;) {
      const char* const fault = FaultAt(at);
      if (fault == nullptr) {
        at = TakeFrame(at);
        continue;
      }
      std::uint64_t next = size;
      if (expected != Expected::Unclosed) {
        recording.MediaFault(at, fault);
        next = NextPlausible(at + kUnit);
      }
      recording.unreadable += next - at;
      previousTotal = kUnknown;
      at = next;
    }
  }

 private:
  // At most `length` bytes, fewer only at the end of the file. Valid until the next call.
  View At(std::uint64_t offset, std::size_t length) {
    constexpr std::size_t kReadAtOnce = 4096;
    if (offset < begin || offset + length > begin + buffer.size()) {
      begin = offset;
      buffer.resize(std::max(length, kReadAtOnce));
      buffer.resize(file.ReadAt(begin, std::as_writable_bytes(std::span(buffer))).bytes);
    }
    const View rest = View(buffer).subspan(static_cast<std::size_t>(offset - begin));
    return rest.first(std::min(length, rest.size()));
  }

  void ReadHead() {
    const View found = At(0, kFirstFrame);
    const Bytes head(found.begin(), found.end());
    if (head.size() >= kPackHeader && head[3] != 0xBA) {
      if (expected != Expected::AnyWriters) recording.MediaFault(3, "there is no pack header");
      return;
    }
    const std::size_t map = head.size() < kPackHeader + 6 ? kMap : 6 + BigAt(head, 20, 2);
    recording.firstFrame = std::min<std::uint64_t>(size, kPackHeader + map);
    if (head.size() < kPackHeader + std::min(map, kMap)) {
      recording.MediaFault(size, "the file ends inside its head");
      recording.firstFrame = size;
      return;
    }
    Wanted pack;
    pack.Big(8, 0x000001BA44000400).Big(8, 0x0401000003FAFFFF);
    if (!std::equal(pack.bytes.begin(), pack.bytes.end(), head.begin())) {
      recording.MediaFault(0, "the pack header isn't the constant");
    }
    ReadMap(View(head).subspan(kPackHeader), map);
    if (expected != Expected::AnyWriters) CheckMap(View(head).subspan(kPackHeader));
  }

  void ReadMap(View map, std::size_t length) {
    if (!StartsFrame(map)) {
      recording.MediaFault(kPackHeader, "the stream map doesn't begin with 00 00 01");
    }
    const std::size_t info = map.size() < 10 ? 0 : BigAt(map, 8, 2);
    if (length > map.size() || info < 28 || 10 + info > length || BigAt(map, 0, 4) != 0x1BC) {
      recording.MediaFault(kPackHeader + 8, "the stream map contradicts its own length");
      return;
    }
    recording.hasMap = true;
    recording.fileInput = map[18];
    const std::size_t first = info + 12;
    const std::size_t entrySize = first + 4 > length ? 0 : BigAt(map, first + 2, 2) + 4;
    for (unsigned n = 0; n < kStreams; ++n) {
      if (entrySize < 8 || first + (n + 1) * entrySize > length) {
        recording.MediaFault(kPackHeader, "the stream map has no entry " + std::to_string(n));
        continue;
      }
      Stream& stream = recording.streams[n];
      const View entry = map.subspan(first + n * entrySize, entrySize);
      stream.type = entry[0];
      stream.id = entry[1];
      if (n < kVideoStreams) {
        stream.width16 = entry[4];
        stream.height16 = entry[5];
      } else {
        stream.bufSizeSamples = static_cast<std::uint16_t>(BigAt(entry, 4, 2));
        stream.sampleRate = static_cast<std::uint16_t>(BigAt(entry, 6, 2));
      }
      if (entrySize >= 58) stream.name = TextAt(entry, 26);
      if (StreamOf(stream.id) != n) {
        recording.MediaFault(kPackHeader, "entry " + std::to_string(n) +
                                              " of the stream map has the id of another stream");
      }
    }
  }

  // All of the plug-in's map follows from the fields that were taken from it.
  void CheckMap(View map) {
    Wanted wanted;
    wanted.Big(8, 0x000001BC07A4E2FF).Big(2, 94).Fill(8, 0xFF).Big(1, recording.fileInput);
    wanted.Fill(51).Big(1, 2).Fill(33).Big(2, 1856);
    for (unsigned n = 0; n < kStreams; ++n) {
      const Stream& stream = recording.streams[n];
      const bool video = n < kVideoStreams;
      const unsigned base = !video ? 0xC0u : stream.type == 128 ? 0xD0u : 0xE0u;
      wanted.Big(1, stream.type).Big(1, base + n % 16).Big(2, 54);
      if (video) {
        wanted.Big(1, stream.width16).Big(1, stream.height16).Big(2, 0xFFFF);
      } else {
        wanted.Big(2, stream.bufSizeSamples).Big(2, stream.sampleRate);
      }
      wanted.Fill(18);
      wanted.bytes.insert(wanted.bytes.end(), stream.name.begin(), stream.name.end());
      wanted.Fill(32 - stream.name.size());
    }
    const auto differs = std::ranges::mismatch(wanted.bytes, map).in1 - wanted.bytes.begin();
    if (differs != std::ptrdiff_t{kMap}) {
      recording.MediaFault(kPackHeader + static_cast<std::size_t>(differs),
                           "the stream map isn't laid out as it is written");
    }
  }

  static unsigned StreamOf(unsigned id) {
    return (id & 15) + ((id & 0x30) == 0 ? kVideoStreams : 0);
  }

  // What keeps the bytes at a place from being a whole frame; null when nothing does.
  const char* FaultAt(std::uint64_t at) {
    const View bytes = At(at, kPesHeader);
    if (bytes.size() < kPesHeader) return "the file ends inside the header of a frame";
    if (!StartsFrame(bytes)) return "no 00 00 01 where a frame begins";
    const std::uint32_t total = SizeAt(bytes, 24);
    if (!IsSize(total)) return "the size of a frame is 0, or no multiple of 32";
    if (at + total > size) return "the file ends inside a frame";
    return nullptr;
  }

  // Where frames go on behind damage: a header with all its marks, whose frame is followed by
  // another one or by the end. The file's size when they don't.
  std::uint64_t NextPlausible(std::uint64_t at) {
    for (; at + kPesHeader <= size; at += kUnit) {
      const View bytes = At(at, kPesHeader);
      if (bytes.size() < kPesHeader) break;
      if (bytes[6] != 0x80 || bytes[7] != 0xC1 || bytes[19] != 0x0F || FaultAt(at) != nullptr) {
        continue;
      }
      const std::uint64_t end = at + SizeAt(bytes, 24);
      if (end == size || StartsFrame(At(end, 3))) return at;
    }
    return size;
  }

  // Returns the frame's end.
  std::uint64_t TakeFrame(std::uint64_t at) {
    const View found = At(at, kPesHeader);
    const Bytes bytes(found.begin(), found.end());
    Frame frame;
    frame.offset = at;
    frame.total = SizeAt(bytes, 24);
    frame.stream = StreamOf(bytes[3]);
    frame.info = bytes[27];
    frame.streamInfo = bytes[28];
    frame.flags = bytes[27] & 0xE0u;
    frame.type = bytes[27] & 3u;
    frame.encoder = bytes[28] >> 4 & 3u;
    frame.channel = bytes[28] & 15u;
    // Bytes 28 to 31 of an older frame are the seconds, or nothing.
    const bool older = BigAt(bytes, 28, 4) == 0xFFFFFFFF || (bytes[28] & 0x80) == 0;
    SetTime(bytes, older, frame);
    const std::size_t user = std::max(bytes[20] & 0x7F, 11) - 11u;
    const std::size_t pad = older || (bytes[29] & 0xE0) != 0xC0 ? 0 : bytes[29] & 31u;
    CheckHeader(bytes, user, pad, older, frame);
    if (kPesHeader + user + pad <= frame.total) TakeContent(user, pad, frame);
    previousTotal = frame.total;
    recording.frames.push_back(std::move(frame));
    return at + previousTotal;
  }

  void SetTime(View bytes, bool older, Frame& frame) {
    const std::uint64_t ms = TimeStampAt(bytes, 14) / kTicksPerMs;
    if (!older) {
      frame.date = static_cast<std::uint16_t>(LittleAt(bytes, 30, 2));
      frame.ms = static_cast<std::uint32_t>(ms);
    } else {
      std::int64_t seconds = BigAt(bytes, 28, 4);
      if (seconds == kNone) {
        if (!created) (void)file.CreationTime(created.emplace(0));
        seconds = *created + static_cast<std::int64_t>(ms / 1000);
      }
      const std::chrono::sys_seconds moment{std::chrono::seconds(seconds)};
      const auto day = std::chrono::floor<std::chrono::days>(moment);
      const std::chrono::year_month_day date(day);
      if (date.year() >= std::chrono::year(2000) && date.year() < std::chrono::year(2128)) {
        frame.date = static_cast<std::uint16_t>((static_cast<int>(date.year()) - 2000) << 9 |
                                                static_cast<unsigned>(date.month()) << 5 |
                                                static_cast<unsigned>(date.day()));
        frame.ms = static_cast<std::uint32_t>((moment - day).count() * 1000) +
                   static_cast<std::uint32_t>(ms % 1000);
      }
    }
    if (IsDate(frame.date)) {
      frame.timeMs = DaysSince1970(frame.date) * std::int64_t{kMsPerDay} + frame.ms;
    }
  }

  void CheckHeader(View bytes, std::size_t user, std::size_t pad, bool older, const Frame& frame) {
    constexpr std::size_t kPtsAt = 9, kDtsAt = 14, kPreviousAt = 21;
    const std::uint64_t pts = TimeStampAt(bytes, kPtsAt), dts = TimeStampAt(bytes, kDtsAt);
    const bool ours = expected != Expected::AnyWriters;
    // From the first time stamp to the sizes, as another writer of the same values writes it.
    Wanted fixed;
    fixed.TimeStamp(pts).TimeStamp(dts).Big(1, 0x0F).Big(1, 0x80 | (user + 11));
    fixed.Size(SizeAt(bytes, kPreviousAt)).Size(frame.total);
    const auto wrong = std::ranges::mismatch(fixed.bytes, bytes.subspan(kPtsAt)).in1;
    const bool padFits = kPesHeader + user + pad <= frame.total;
    const unsigned id = bytes[3];
    const struct {
      bool broken;
      std::size_t at;
      const char* rule;
    } rules[] = {
        {id < 0xC0 || id > 0xEF, 3, "the stream id is none of C0 to EF"},
        {ours && id != recording.streams[frame.stream].id, 3, "the map has another stream id"},
        {BigAt(bytes, 4, 2) != ((frame.total - 6) & 0xFFFF), 4,
         "the packet length isn't the frame's size less 6"},
        {bytes[6] != 0x80 || bytes[7] != 0xC1, 6, "the marks aren't 80 C1"},
        {bytes[8] != user + 23, 8, "the header length isn't the metadata's and 23"},
        {wrong != fixed.bytes.end(), kPtsAt + static_cast<std::size_t>(wrong - fixed.bytes.begin()),
         "a fixed bit is wrong"},
        {dts / kTicksPerMs >= 2 * kMsPerDay || pts < dts || (ours && pts != frame.ms * kTicksPerMs),
         kPtsAt, "the time stamps aren't a time of day"},
        {previousTotal != kUnknown && SizeAt(bytes, kPreviousAt) != previousTotal, kPreviousAt,
         "the size of the frame before is wrong"},
        {(bytes[27] & 0x1C) != 0x1C, 27, "the fixed bits of the frame info aren't set"},
        {!older && (bytes[28] & 0xC0) != 0xC0, 28, "the fixed bits of the stream info aren't set"},
        {!padFits || (!older && (bytes[29] & 0xE0) != 0xC0), 29,
         "the pad count doesn't fit the frame"},
        {(!older && !IsDate(frame.date)) || (ours && older), 30, "the date isn't one"},
        {!ours && frame.type == 0 && frame.stream < kVideoStreams, 27,
         "a video frame has the type of audio"},
    };
    for (const auto& rule : rules) {
      if (rule.broken) recording.MediaFault(frame.offset + rule.at, rule.rule);
    }
  }

  void TakeContent(std::size_t user, std::size_t pad, Frame& frame) {
    const std::uint64_t end = frame.offset + frame.total - pad;
    const View padding = At(end, pad);
    if (!std::ranges::all_of(padding, [](auto byte) { return byte == 0; })) {
      recording.MediaFault(end, "the padding isn't zero");
    }
    const std::uint64_t begins = frame.offset + kPesHeader + user;
    const View data = At(begins - user, user);
    for (std::size_t i = 0; i + 4 <= data.size(); i += 4) {
      const std::uint8_t* const d = &data[i];
      if (expected != Expected::AnyWriters && ((d[1] & 1) != 1 || d[3] != 1)) {
        recording.MediaFault(frame.offset + kPesHeader + i, "a mark in the metadata is missing");
      }
      frame.userData.push_back(d[0]);
      frame.userData.push_back(static_cast<std::uint8_t>((d[1] & 0xFE) | d[2] >> 7));
      frame.userData.push_back(static_cast<std::uint8_t>(d[2] << 1 & 0xFC));
    }
    if (expected == Expected::AnyWriters) return;
    const View payload = At(begins, static_cast<std::size_t>(end - begins));
    frame.payload.assign(payload.begin(), payload.end());
  }

  qv::kelvo::MediaFile& file;
  const std::uint64_t size;
  const Expected expected;
  Recording& recording;
  std::uint32_t previousTotal = kBeforeFirst;
  std::optional<std::int64_t> created;  // of the file, once it was needed
  std::uint64_t begin = 0;
  Bytes buffer;
};

}  // namespace

void WalkMedia(qv::kelvo::MediaFile& file, std::uint64_t size, Expected expected,
               Recording& recording) {
  Walker(file, size, expected, recording).Run();
}

}  // namespace psinfo
