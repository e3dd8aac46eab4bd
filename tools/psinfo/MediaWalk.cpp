#include "psinfo/MediaWalk.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>

#include "media/ByteOrder.h"
#include "media/FrameSource.h"
#include "media/FrameTime.h"
#include "platform/Platform.h"

namespace psinfo {
namespace {

using namespace qv::kelvo;

constexpr std::size_t kMapHeadSize = 6;

class Walker {
 public:
  Walker(MediaFile& file, std::uint64_t size) : source(file, size) { walk.size = size; }

  MediaWalk Run() {
    ReadHead();
    std::uint64_t position = walk.dataStart;
    while (position < walk.size) {
      const char* const fault = source.FaultAt(position);
      if (fault == nullptr) {
        position = TakeFrame(position);
        continue;
      }
      Find(position, fault);
      const std::uint64_t next = source.NextPlausible(position + kFrameAlignment);
      walk.unreadable += next - position;
      previousSize = 0;
      position = next;
    }
    return std::move(walk);
  }

 private:
  void Find(std::uint64_t offset, std::string rule) {
    walk.findings.push_back({Finding::Where::Media, offset, std::move(rule)});
  }

  void ReadHead() {
    const ConstBytes head = source.At(0, kPackHeaderSize + kProgramMapSize);
    if (head.size() >= kPackHeaderSize && !IsPackHeader(head.first<kPackHeaderSize>())) {
      return;  // a file without a map
    }
    const ConstBytes map = head.subspan(std::min(head.size(), kPackHeaderSize));
    const std::size_t length = map.size() < kMapHeadSize
                                   ? kProgramMapSize
                                   : kMapHeadSize + ProgramMapLength(map.first<kMapHeadSize>());
    walk.dataStart = std::min<std::uint64_t>(walk.size, kPackHeaderSize + length);
    if (map.size() < std::min(length, kProgramMapSize)) {
      Find(walk.size, "the file ends inside its head");
      walk.dataStart = walk.size;
      return;
    }
    if (!std::ranges::equal(head.first<kPackHeaderSize>(), kPackHeader))
      Find(0, "the pack header isn't the constant");
    if (!HasStartCode(map)) Find(kPackHeaderSize, "the stream map doesn't begin with 00 00 01");
    if (!DecodeFileInfo(map, walk.info)) {
      Find(kPackHeaderSize + 8, "the stream map contradicts its own length");
      return;
    }
    walk.streams.resize(kStreamCount);
    for (unsigned stream = 0; stream < kStreamCount; ++stream) {
      auto& descriptor = walk.streams[stream];
      if (!DecodeStreamDescriptor(map, stream, descriptor)) {
        Find(kPackHeaderSize, "the stream map has no entry " + std::to_string(stream));
      } else if (StreamOfId(descriptor.streamId) != stream) {
        Find(kPackHeaderSize,
             "entry " + std::to_string(stream) + " of the stream map has the id of another stream");
      }
    }
  }

  std::uint64_t TakeFrame(std::uint64_t position) {
    std::array<std::byte, kPesHeaderSize> bytes;  // the padding is read meanwhile
    std::ranges::copy(source.At(position, kPesHeaderSize), bytes.begin());
    const PesHeader header = DecodePesHeader(bytes);
    CheckHeader(position, bytes, header);
    walk.frames.push_back(source.RecordAt(position, walk.dataStart));
    previousSize = header.size;
    return position + header.size;
  }

  // Rules that a reader can do without.
  void CheckHeader(std::uint64_t position, ConstPesHeaderBytes bytes, const PesHeader& header) {
    constexpr std::size_t kLengthAt = 4, kPtsAt = 9, kPreviousAt = 21, kInfoAt = 27, kStreamAt = 28,
                          kPadAt = 29, kDateAt = 30;
    constexpr std::uint32_t kSizeBits = 0x3FFFFF;
    const unsigned id = header.streamId;
    // Bytes 28 to 31 of an older frame are the seconds, or nothing.
    const bool older = IsOlderFrame(bytes);
    const std::uint32_t pad = older ? 0 : PadCount(header.padInfo);
    const std::size_t content = kPesHeaderSize + header.userDataBytes;
    const bool padFits = content + pad <= header.size;
    // After damage the size of the frame before is unknown.
    const bool previousWrong =
        previousSize != 0 && (header.previousSize & kSizeBits) != (previousSize & kSizeBits);
    const std::size_t fixedBits = WrongFixedBits(bytes, header);
    const struct {
      bool broken;
      std::size_t at;
      const char* rule;
    } rules[] = {
        {id < 0xC0 || id > 0xEF, 3, "the stream id is none of C0 to EF"},
        {GetBE16(bytes, kLengthAt) != ((header.size - 6) & 0xFFFF), kLengthAt,
         "the packet length isn't the frame's size less 6"},
        {GetU8(bytes, 6) != 0x80 || GetU8(bytes, 7) != 0xC1, 6, "the marks aren't 80 C1"},
        {GetU8(bytes, 8) != header.userDataBytes + 23u, 8,
         "the header length isn't the metadata's and 23"},
        {fixedBits != 0, fixedBits, "a fixed bit is wrong"},
        {header.dts / kTicksPerMs >= 2ull * kMsPerDay || header.pts < header.dts, kPtsAt,
         "the time stamps aren't a time of day"},
        {previousWrong, kPreviousAt, "the size of the frame before is wrong"},
        {(header.frameInfo & 0x1C) != 0x1C, kInfoAt, "the fixed bits of the frame info aren't set"},
        {!older && (header.streamInfo & 0xC0) != 0xC0, kStreamAt,
         "the fixed bits of the stream info aren't set"},
        {!padFits || (!older && (header.padInfo & 0xE0) != 0xC0), kPadAt,
         "the pad count doesn't fit the frame"},
        {padFits && !IsZero(position + header.size - pad, pad), header.size - pad,
         "the padding isn't zero"},
        {!older &&
             (MonthOf(header.date) < 1 || MonthOf(header.date) > 12 || DayOf(header.date) < 1),
         kDateAt, "the date isn't one"},
        {(header.frameInfo & kFrameTypeMask) == kFrameAudio &&
             StreamOfId(header.streamId) < kVideoStreams,
         kInfoAt, "a video frame has the type of audio"},
    };
    for (const auto& rule : rules) {
      if (rule.broken) Find(position + rule.at, rule.rule);
    }
  }

  // The first byte of the time stamps, the extension's marks and the sizes that another writer of
  // the same values would write otherwise; 0 for none.
  static std::size_t WrongFixedBits(ConstPesHeaderBytes bytes, const PesHeader& header) {
    constexpr std::size_t kFirst = 9, kEnd = 27;
    std::array<std::byte, kPesHeaderSize> wanted;
    EncodePesHeader(header, wanted);
    for (std::size_t at = kFirst; at < kEnd; ++at) {
      if (bytes[at] != wanted[at]) return at;
    }
    return 0;
  }

  bool IsZero(std::uint64_t offset, std::size_t length) {
    return std::ranges::all_of(source.At(offset, length),
                               [](std::byte b) { return b == std::byte{0}; });
  }

  FrameSource source;
  MediaWalk walk;
  std::uint32_t previousSize = kNoPreviousFrame;
};

}  // namespace

MediaWalk WalkMedia(const std::string& path) {
  std::unique_ptr<MediaFile> file;
  std::uint64_t size = 0;
  int error = SystemPlatform().mediaFiles.Open(path, OpenMode::Read, file);
  if (error == 0) error = file->Size(size);
  if (error != 0) throw std::runtime_error(path + ": " + std::generic_category().message(error));
  return Walker(*file, size).Run();
}

}  // namespace psinfo
