#include "psinfo/Check.h"

#include <algorithm>
#include <map>

#include "media/IndexImage.h"
#include "media/PSFile.h"
#include "media/PsiFormat.h"
#include "media/StreamId.h"
#include "platform/Platform.h"
#include "psinfo/IndexFields.h"
#include "psinfo/MediaWalk.h"

namespace psinfo {
namespace {

using namespace qv::kelvo;

constexpr std::size_t kFrameCountAt = 20;

// The whole index file; false when there is none.
bool ReadIndex(const std::string& path, std::vector<std::byte>& bytes) {
  std::unique_ptr<MediaFile> file;
  std::uint64_t size = 0;
  if (SystemPlatform().mediaFiles.Open(path, OpenMode::Read, file) != 0 || file->Size(size) != 0) {
    return false;
  }
  bytes.resize(static_cast<std::size_t>(size));
  bytes.resize(file->ReadAt(0, bytes).bytes);
  return true;
}

PsiFrameRecord RecordAt(const std::vector<std::byte>& index, std::size_t number) {
  return DecodeFrame(std::span(index)
                         .subspan(kPsiHeadSize + number * kPsiFrameRecordSize)
                         .first<kPsiFrameRecordSize>());
}

std::size_t RoomForRecords(const std::vector<std::byte>& index) {
  return (index.size() - kPsiHeadSize) / kPsiFrameRecordSize;
}

class IndexCheck {
 public:
  IndexCheck(MediaWalk& mediaWalk, const std::vector<std::byte>& indexBytes, Findings& toFindings)
      : walk(mediaWalk), index(indexBytes), findings(toFindings) {}

  void Run() {
    if (index.size() < kPsiHeadSize) {
      Find(index.size(), "the index ends inside its head of 1088 bytes");
      return;
    }
    const PsiHeader header = DecodeHeader(std::span(index).first<kPsiHeaderSize>());
    if (!IsValid(header)) {
      Find(0, "the head has no version or other record sizes");
      return;
    }
    if (header.frameCount == 0 && RoomForRecords(index) > 0 && IsValid(RecordAt(index, 0))) {
      Find(kFrameCountAt, "the head counts no frames though there are records: never closed");
      CompareRecords(CountRecords());
    } else if (header.frameCount > RoomForRecords(index)) {
      Find(kFrameCountAt, "the head counts " + std::to_string(header.frameCount) +
                              " frames, but there is room for " +
                              std::to_string(RoomForRecords(index)));
      CompareRecords(RoomForRecords(index));
    } else if (walk.unreadable != 0 || header.frameCount != walk.frames.size()) {
      CompareRecords(header.frameCount);
    } else {
      CompareAll();
    }
  }

 private:
  void Find(std::uint64_t offset, std::string rule) {
    findings.push_back({Finding::Where::Index, offset, std::move(rule)});
  }

  // As a reader counts them: the runs behind the records don't begin where the last frame ends.
  [[nodiscard]] std::size_t CountRecords() const {
    std::size_t count = 0;
    for (std::uint64_t end = 0; count < RoomForRecords(index); ++count) {
      const PsiFrameRecord record = RecordAt(index, count);
      if (!IsValid(record) || record.Offset() != end) break;
      end += record.Size();
    }
    return count;
  }

  // Media file and index have the same number of frames: every byte is known.
  void CompareAll() {
    PsiStreamRecords setup;
    for (std::size_t i = 0; i < kStreamCount; ++i) {
      const std::size_t at = kPsiHeaderSize + i * kPsiStreamRecordSize;
      setup[i] = DecodeStream(std::span(index).subspan(at).first<kPsiStreamRecordSize>());
    }
    const auto image = MakeIndex(walk.frames, &setup, NamedStreams(walk.streams),
                                 IsWideInput(walk.info.fileInput[0]));
    const std::size_t common = std::min(index.size(), image.bytes.size());
    for (std::size_t offset = 0; offset < common; ++offset) {
      if (index[offset] == image.bytes[offset]) continue;
      const std::size_t start = FieldStart(offset, image.frameCount);
      const std::string field = FieldAt(offset, image.frameCount);
      Find(start, field + " isn't what the frames say");
      while (offset + 1 < common && FieldAt(offset + 1, image.frameCount) == field) ++offset;
    }
    if (index.size() != image.bytes.size()) {
      Find(common, "the index has " + std::to_string(index.size()) + " bytes and should have " +
                       std::to_string(image.bytes.size()));
    }
  }

  // Each record against the frame that it points to.
  void CompareRecords(std::size_t count) {
    std::map<std::uint32_t, const PsiFrameRecord*> frames;
    for (const auto& frame : walk.frames) frames.emplace(frame.offsetUnits, &frame);
    for (std::size_t number = 0; number < count; ++number) {
      const auto record = RecordAt(index, number);
      const std::uint64_t at = FrameRecordOffset(static_cast<std::uint32_t>(number));
      const std::string name = "frame record " + std::to_string(number);
      const auto found = frames.find(record.offsetUnits);
      if (!IsValid(record)) {
        Find(at, name + " was never written");
      } else if (found == frames.end()) {
        Find(at, name + " points to no readable frame of the media file");
      } else {
        const PsiFrameRecord& frame = *found->second;
        if (record.stream != frame.stream || record.Size() != frame.Size() ||
            record.date != frame.date || record.ms != frame.ms ||
            record.frameInfo != frame.frameInfo || record.streamInfo != frame.streamInfo) {
          Find(at, name + " isn't what its frame says");
        }
        frames.erase(found);
      }
    }
    if (!frames.empty()) {
      Find(FrameRecordOffset(static_cast<std::uint32_t>(count)),
           std::to_string(frames.size()) + " frames of the media file have no record");
    }
  }

  MediaWalk& walk;
  const std::vector<std::byte>& index;
  Findings& findings;
};

}  // namespace

CheckResult CheckRecording(const std::string& mediaPath) {
  auto walk = WalkMedia(mediaPath);
  CheckResult result{walk.frames.size(), walk.unreadable, std::move(walk.findings)};
  std::vector<std::byte> index;
  if (ReadIndex(IndexPath(mediaPath), index)) {
    IndexCheck(walk, index, result.findings).Run();
  } else {
    result.findings.push_back({Finding::Where::Index, 0, "there is no index"});
  }
  return result;
}

}  // namespace psinfo
