#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "media/PsFormat.h"
#include "media/PsiFormat.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// In place of an error number: a file could be written in part only, the disk being full.
inline constexpr int kRanShort = -1;

// The pack header and stream map ahead of a media file's frames, also where a power cut left zeros
// instead. One thread at a time.
class MediaHead {
 public:
  static constexpr std::size_t kSize = kPackHeaderSize + kProgramMapSize;

  // Looks at a file's head. Returns 0 or the system's error number.
  [[nodiscard]] int Read(MediaFile& media);

  // Offset of the first frame.
  [[nodiscard]] std::uint64_t DataStart() const { return dataStart; }
  // The head can be read, or is lost as a whole and known to have been of the usual size.
  [[nodiscard]] bool IsKnown() const { return known; }
  // Nothing but zeros stand where the head was.
  [[nodiscard]] bool IsLost() const { return lost; }
  // Whether the frames tell the encoder, see MakeIndex.
  [[nodiscard]] bool IsWideInput() const;
  // Streams that the file has a place for, see MakeIndex.
  [[nodiscard]] std::uint32_t Named() const;

  // Makes the head of a file that lost it and holds `frames`: that of the recording `sibling`, if
  // it has the same streams, else one that tells of the streams only what their frames do.
  void Restore(MediaFiles& files, const std::string& sibling,
               const std::vector<PsiFrameRecord>& frames, MediaFile* media, std::uint8_t fileInput);
  // Puts the made head where the lost one was. Returns 0, the system's error number or kRanShort.
  [[nodiscard]] int Write(MediaFiles& files, const std::string& path) const;

 private:
  using StreamIds = std::array<std::uint8_t, kStreamCount>;  // 0: no frames

  [[nodiscard]] StreamIds IdsOf(const std::vector<PsiFrameRecord>& frames, MediaFile& media) const;
  [[nodiscard]] bool Borrow(MediaFiles& files, const std::string& sibling, const StreamIds& ids);
  void Invent(const StreamIds& ids, std::uint8_t fileInput);

  std::array<std::byte, kSize> bytes{};
  std::uint64_t dataStart = 0;
  bool known = false;
  bool lost = false;
};

}  // namespace qv::kelvo
