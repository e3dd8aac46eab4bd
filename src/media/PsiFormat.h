#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "media/PsFormat.h"

namespace qv::kelvo {

// The bytes of a `.psi` index file (docs/media-format.md), and the bookkeeping that writer and
// recovery share. Functions over buffers only.

inline constexpr std::size_t kPsiHeaderSize = 64;
inline constexpr std::size_t kPsiStreamRecordSize = 32;
inline constexpr std::size_t kPsiFrameRecordSize = 32;
inline constexpr std::size_t kPsiRunRecordSize = 16;
inline constexpr std::size_t kPsiHeadSize = kPsiHeaderSize + kStreamCount * kPsiStreamRecordSize;
inline constexpr std::uint32_t kNoFrame = 0xFFFFFFFFu;  // a link that leads nowhere

// Place of frame record `index` behind the index file's start. The runs follow the last record.
[[nodiscard]] constexpr std::uint64_t FrameRecordOffset(std::uint32_t index) {
  return kPsiHeadSize + std::uint64_t{index} * kPsiFrameRecordSize;
}

struct PsiHeader {
  std::uint32_t version = 1;
  std::uint32_t headerSize = kPsiHeaderSize;
  std::uint32_t streamRecordSize = kPsiStreamRecordSize;
  std::uint32_t frameRecordSize = kPsiFrameRecordSize;
  std::uint32_t streamCount = kStreamCount;
  std::uint32_t frameCount = 0;
  PackedDate firstDate = 0;
  PackedDate lastDate = 0;
  std::uint32_t firstMs = 0;
  std::uint32_t lastMs = 0;
  std::uint32_t runRecordSize = kPsiRunRecordSize;
  std::uint32_t runCount = 0;

  bool operator==(const PsiHeader&) const = default;
};

struct PsiStreamRecord {
  std::uint32_t frameCount = 0;
  std::uint32_t firstFrame = 0;
  std::uint32_t lastFrame = 0;
  PackedDate firstDate = 0;
  PackedDate lastDate = 0;
  std::uint32_t firstMs = 0;
  std::uint32_t lastMs = 0;
  std::uint8_t channel = 0;
  std::uint8_t flags = 0;
  std::uint8_t encoder = 0;

  bool operator==(const PsiStreamRecord&) const = default;
};

struct PsiFrameRecord {
  std::uint8_t stream = 0;
  std::uint8_t frameInfo = 0;
  std::uint8_t streamInfo = 0;
  std::uint16_t sizeUnits = 0;
  PackedDate date = 0;
  std::uint32_t ms = 0;
  std::uint32_t offsetUnits = 0;
  std::uint32_t prev = 0;
  std::uint32_t next = 0;
  std::uint16_t groupFrame = 0;
  std::uint8_t sizeHigh = 0;

  // Size of the frame in the media file.
  [[nodiscard]] constexpr std::uint32_t Size() const {
    return (sizeHigh & 1u) << 21 | static_cast<std::uint32_t>(sizeUnits) << 5;
  }
  constexpr void SetSize(std::uint32_t size) {
    sizeUnits = static_cast<std::uint16_t>((size >> 5) & 0xFFFFu);
    sizeHigh = static_cast<std::uint8_t>(size >> 21);
  }
  // Place of the frame behind the media file's first frame, in bytes.
  [[nodiscard]] constexpr std::uint64_t Offset() const {
    return std::uint64_t{offsetUnits} * kFrameAlignment;
  }

  bool operator==(const PsiFrameRecord&) const = default;
};

struct PsiRunRecord {
  std::uint8_t stream = 0;
  std::uint8_t flags = 0;
  PackedDate firstDate = 0;  // 0: no run
  PackedDate lastDate = 0;
  std::uint32_t firstMs = 0;
  std::uint32_t lastMs = 0;

  bool operator==(const PsiRunRecord&) const = default;
};

void Encode(const PsiHeader& header, std::span<std::byte, kPsiHeaderSize> bytes);
void Encode(const PsiStreamRecord& record, std::span<std::byte, kPsiStreamRecordSize> bytes);
void Encode(const PsiFrameRecord& record, std::span<std::byte, kPsiFrameRecordSize> bytes);
void Encode(const PsiRunRecord& record, std::span<std::byte, kPsiRunRecordSize> bytes);

// Any bytes decode; whether the result may be used, the functions below say.
[[nodiscard]] PsiHeader DecodeHeader(std::span<const std::byte, kPsiHeaderSize> bytes);
[[nodiscard]] PsiFrameRecord DecodeFrame(std::span<const std::byte, kPsiFrameRecordSize> bytes);

// The stream records in `bytes`, one behind the other, as many as there are `records`.
void DecodeStreams(std::span<const std::byte> bytes, std::span<PsiStreamRecord> records);

// False, with `record` untouched, for a stream number of 32 or more or reserved bytes in use.
[[nodiscard]] bool DecodeRun(std::span<const std::byte, kPsiRunRecordSize> bytes,
                             PsiRunRecord& record);

// A head whose record sizes are the ones above. Its counts are still unproven.
[[nodiscard]] bool IsValid(const PsiHeader& header);

// A record that was written, unlike the zeros of a preallocated file.
[[nodiscard]] bool IsValid(const PsiFrameRecord& record);

// The continuous stretches of all streams, built frame by frame. One thread at a time.
class PsiRuns {
 public:
  // Takes a frame of `record.stream`, which is below 32, into its stream's run, ending the run
  // before if the frame doesn't continue it.
  void Add(const PsiFrameRecord& record);

  // Ends all open runs, in stream order.
  void CloseAll();

  // Forgets everything; keeps the memory.
  void Clear();

  // Runs that have ended, in that order.
  [[nodiscard]] const std::vector<PsiRunRecord>& Closed() const { return closedRuns; }
  // Runs with a frame that haven't.
  [[nodiscard]] std::size_t OpenCount() const;

 private:
  std::array<PsiRunRecord, kStreamCount> openRuns{};
  std::vector<PsiRunRecord> closedRuns;
};

// What an index tells about its frames as a whole, kept up frame by frame.
struct PsiTables {
  PsiHeader header;
  std::array<PsiStreamRecord, kStreamCount> streams{};
  PsiRuns runs;

  // Takes `record`, whose stream is below 32, as the record number `header.frameCount`.
  void Add(const PsiFrameRecord& record);
};

}  // namespace qv::kelvo
