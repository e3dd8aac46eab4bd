#include "media/IndexImage.h"

#include <span>

namespace qv::kelvo {
namespace {

void LinkFrames(std::vector<PsiFrameRecord>& frames, PsiTables& tables) {
  std::array<std::uint16_t, kStreamCount> groups{};
  for (PsiFrameRecord& frame : frames) {
    PsiStreamRecord& stream = tables.streams[frame.stream];
    frame.prev = stream.frameCount == 0 ? kNoFrame : stream.lastFrame;
    frame.next = kNoFrame;
    if (frame.prev != kNoFrame) frames[frame.prev].next = tables.header.frameCount;
    const bool dependent = (frame.frameInfo & kFrameTypeMask) >= kFrameP;
    std::uint16_t& group = groups[frame.stream];
    group = dependent ? static_cast<std::uint16_t>(group + 1) : std::uint16_t{0};
    frame.groupFrame = group;
    if (stream.frameCount == 0) {
      stream.channel = ChannelOf(frame.streamInfo);
      stream.encoder = EncoderOf(frame.streamInfo);
    }
    tables.Add(frame);
  }
  tables.runs.CloseAll();
  tables.header.runCount = static_cast<std::uint32_t>(tables.runs.Closed().size());
}

// Frames hold the low bits of both numbers: the rest is taken over where these agree.
void KeepSetup(const PsiStreamRecords& setup, std::uint32_t named, bool wideInput,
               PsiStreamRecords& streams) {
  constexpr unsigned kChannelInFrames = 15, kEncoderInFrames = 3;
  for (std::size_t i = 0; i < kStreamCount; ++i) {
    PsiStreamRecord& stream = streams[i];
    const bool unused = stream.frameCount == 0;
    if (unused && (named >> i & 1u) == 0) continue;
    if (unused || ((stream.channel ^ setup[i].channel) & kChannelInFrames) == 0) {
      stream.channel = setup[i].channel;
    }
    if (unused || !wideInput || ((stream.encoder ^ setup[i].encoder) & kEncoderInFrames) == 0) {
      stream.encoder = setup[i].encoder;
    }
  }
}

template <std::size_t kSize, class Record>
void Put(const Record& record, std::span<std::byte>& rest) {
  Encode(record, rest.first<kSize>());
  rest = rest.subspan(kSize);
}

}  // namespace

std::uint32_t NamedStreams(std::span<const PsStreamDescriptor> map) {
  if (map.empty()) return ~0u;
  std::uint32_t named = 0;
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    const PsStreamDescriptor& entry = map[stream];
    const bool blank = entry.streamType == (stream < kVideoStreams ? kVideoTypes : kAudioTypes) &&
                       entry.name.empty() && entry.width16 == 0 && entry.height16 == 0;
    if (!blank) named |= 1u << stream;
  }
  return named;
}

IndexImage MakeIndex(std::vector<PsiFrameRecord>& frames, const PsiStreamRecords* setup,
                     std::uint32_t named, bool wideInput) {
  PsiTables tables;
  // A stream that the file has no place for has neither channel nor encoder.
  for (PsiStreamRecord& stream : tables.streams) stream.channel = stream.encoder = 0xFF;
  LinkFrames(frames, tables);
  if (setup != nullptr) KeepSetup(*setup, named, wideInput, tables.streams);
  const auto& runs = tables.runs.Closed();

  IndexImage image;
  image.frameCount = frames.size();
  image.runCount = runs.size();
  image.bytes.resize(kPsiHeadSize + frames.size() * kPsiFrameRecordSize +
                     runs.size() * kPsiRunRecordSize);
  std::span<std::byte> rest = image.bytes;
  Put<kPsiHeaderSize>(tables.header, rest);
  for (const auto& stream : tables.streams) Put<kPsiStreamRecordSize>(stream, rest);
  for (const auto& frame : frames) Put<kPsiFrameRecordSize>(frame, rest);
  for (const auto& run : runs) Put<kPsiRunRecordSize>(run, rest);
  return image;
}

}  // namespace qv::kelvo
