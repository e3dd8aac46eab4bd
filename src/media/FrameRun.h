#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "media/PsFormat.h"
#include "media/PsiFormat.h"
#include "media/RecordTail.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// Where a file that is being written stands.
struct FileEnd {
  std::uint64_t position = 0;                      // of the next frame in the media file
  std::uint32_t previousSize = kNoPreviousFrame;   // of the last frame
  std::array<std::uint32_t, kStreamCount> last{};  // record of each stream with frames
  std::array<std::uint16_t, kStreamCount> groupFrame{};
};

// Frames that go to a media file in one write: their headers, made here, between borrowed payloads;
// and where the index stands behind them. Frames are decided on by the group of pictures, so that
// some 25 of them are due at once: one by one they would cost two calls of the system each. The
// payloads aren't copied, and the file's own state changes only when the run is on disk: a failed
// write leaves the file where it stood. Lives on the stack as long as the write. One thread.
class FrameRun {
 public:
  static constexpr std::size_t kFrames = RecordTail::kRun;
  static constexpr std::uint64_t kBytes = 2u << 20;  // unless a single frame is larger

  // Begins behind record `nextRecord` - 1 and what `before` tells.
  FrameRun(const FileEnd& before, std::uint32_t nextRecord)
      : end(before), first(nextRecord), from(nextRecord) {}

  FrameRun(const FrameRun&) = delete;  // the parts point into it
  FrameRun& operator=(const FrameRun&) = delete;

  [[nodiscard]] std::size_t Count() const { return count; }
  [[nodiscard]] bool HasRoom(std::uint64_t frameBytes) const {
    return count == 0 || (count < kFrames && bytes + frameBytes <= kBytes);
  }

  // Room for the header of the next frame and its user data.
  using Head = std::array<std::byte, kPesHeaderSize + kMaxEncodedUserData>;
  [[nodiscard]] Head& NextHead() { return heads[count]; }

  // Takes the next frame, whose size is that of its parts.
  void Add(ConstBytes head, ConstBytes payload, ConstBytes padding) {
    parts[partCount++] = head;
    if (!payload.empty()) parts[partCount++] = payload;
    if (!padding.empty()) parts[partCount++] = padding;
    bytes += head.size() + payload.size() + padding.size();
    ++count;
  }

  [[nodiscard]] std::span<const ConstBytes> Parts() const {
    return std::span(parts).first(partCount);
  }

  FileEnd end;                // behind the frames so far
  const std::uint32_t first;  // record number of the first frame
  std::uint32_t from;         // the first record that the run adds or changes
  std::uint32_t streams = 0;  // those with frames in the run, a bit each
  // Those whose last record before the run isn't held in memory; their first record in the run.
  std::uint32_t distant = 0;
  std::array<std::uint32_t, kStreamCount> linkTo;

 private:
  std::size_t count = 0;
  std::size_t partCount = 0;
  std::uint64_t bytes = 0;
  std::array<Head, kFrames> heads;  // filled frame by frame
  std::array<ConstBytes, kFrames * 3> parts;
  static_assert(kFrames * 3 <= kMaxWriteParts);
};

}  // namespace qv::kelvo
