#include "media/IndexRepair.h"

#include <algorithm>
#include <optional>

#include "media/FrameSource.h"
#include "media/FrameTime.h"
#include "media/IndexImage.h"
#include "media/PSReader.h"
#include "platform/Files.h"

namespace qv::kelvo {
namespace {

// Smaller media files are debris.
constexpr std::uint64_t kLeastMediaSize = 2048;
// So many records in a row, behind others of an index that can be read, must lead to their frames
// before those are taken to do so, too: what a power cut can have hurt lies at the end.
constexpr std::size_t kProvenRecords = 2048, kProvenIfClosed = 64;

std::string NewIndexPath(const std::string& index) {
  return index + ".psi";
}
std::string OldIndexPath(const std::string& index) {
  return index + ".psm";
}

// Whether the system says that nothing is there.
bool IsGone(const std::string& path) {
  FileKind kind{};
  return FindKind(path, kind) == 0 && kind == FileKind::Missing;
}

// The whole file; empty when there is none. Returns the system's error number.
int ReadWhole(MediaFiles& files, const std::string& path, std::vector<std::byte>& bytes) {
  bytes.clear();
  std::unique_ptr<MediaFile> file;
  std::uint64_t size = 0;
  int error = files.Open(path, OpenMode::Read, file);
  if (error == 0) error = file->Size(size);
  if (error != 0) return IsMissing(error) ? 0 : error;
  bytes.resize(static_cast<std::size_t>(size));
  const IoResult result = file->ReadAt(0, bytes);
  bytes.resize(result.bytes);
  return result.error;
}

// What is left of an index.
class OldIndex {
 public:
  explicit OldIndex(std::vector<std::byte> content) : bytes(std::move(content)) {
    if (bytes.size() < kPsiHeadSize) return;
    const PsiHeader header = DecodeHeader(std::span(bytes).first<kPsiHeaderSize>());
    headIsGood = IsValid(header) && header.streamCount == kStreamCount;
    if (!headIsGood) return;
    closedFrames = header.frameCount;
    DecodeStreams(std::span(bytes).subspan(kPsiHeaderSize), setup);
  }

  [[nodiscard]] std::size_t Size() const { return bytes.size(); }
  // Null without a head.
  [[nodiscard]] const PsiStreamRecords* Setup() const { return headIsGood ? &setup : nullptr; }

  // The records that were written and follow each other in the media file.
  [[nodiscard]] std::vector<PsiFrameRecord> Records() const {
    std::vector<PsiFrameRecord> records;
    std::uint64_t end = 0;
    for (std::size_t i = 0; i < Room(); ++i) {
      const PsiFrameRecord record = At(i);
      if (!IsValid(record) || record.Offset() < end || !IsFrameSize(record.Size())) continue;
      end = record.Offset() + record.Size();
      records.push_back(record);
    }
    return records;
  }

  [[nodiscard]] bool Is(const IndexImage& image) const { return bytes == image.bytes; }

  // Whether the records of these frames, and a head, stand there already.
  [[nodiscard]] bool Holds(const std::vector<PsiFrameRecord>& frames) const {
    if (!headIsGood || frames.size() > Room()) return false;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      if (At(i) != frames[i]) return false;
    }
    return true;
  }

 private:
  [[nodiscard]] std::size_t Room() const {
    if (bytes.size() < kPsiHeadSize) return 0;
    const std::size_t room = (bytes.size() - kPsiHeadSize) / kPsiFrameRecordSize;
    return closedFrames == 0 ? room : std::min<std::size_t>(room, closedFrames);
  }
  [[nodiscard]] PsiFrameRecord At(std::size_t number) const {
    return DecodeFrame(std::span(bytes)
                           .subspan(kPsiHeadSize + number * kPsiFrameRecordSize)
                           .first<kPsiFrameRecordSize>());
  }

  std::vector<std::byte> bytes;
  bool headIsGood = false;
  std::uint32_t closedFrames = 0;  // by the head
  PsiStreamRecords setup{};
};

// Finds the frames of a media file: where the old index knows them, where the one before ends, and
// behind damage wherever one begins.
class FrameSearch {
 public:
  FrameSearch(FrameSource& frameSource, std::uint64_t firstFrame)
      : source(frameSource), dataStart(firstFrame) {}

  [[nodiscard]] std::vector<PsiFrameRecord> Run(const std::vector<PsiFrameRecord>& known,
                                                bool trusted, std::size_t provenAtEnd) {
    std::vector<PsiFrameRecord> frames;
    frames.reserve(known.size());
    const std::size_t trustedEnd = trusted ? TrustedEnd(known, provenAtEnd) : 0;
    std::size_t next = 0;  // of the known ones
    std::uint64_t position = dataStart;
    while (position < source.Size() && source.Error() == 0) {
      while (next < known.size() && PlaceOf(known[next]) < position) ++next;
      const bool isKnown = next < known.size() && PlaceOf(known[next]) == position;
      if (isKnown && (next < trustedEnd || Stands(known[next]))) {
        frames.push_back(known[next]);
      } else if (IsFrame(position)) {
        frames.push_back(source.RecordAt(position, dataStart));
      } else {
        DropCutFrame(frames, position);
        const std::uint64_t end = Resume(position, known, isKnown ? next + 1 : next);
        unreadable += end - position;
        position = end;
        continue;
      }
      position += frames.back().Size();
    }
    return frames;
  }

  std::uint64_t unreadable = 0;

 private:
  [[nodiscard]] std::uint64_t PlaceOf(const PsiFrameRecord& record) const {
    return dataStart + record.Offset();
  }

  // The end of the records whose frames are taken to stand: the first one does, and behind them
  // `proven` in a row, ahead of whatever damage there is at the end.
  [[nodiscard]] std::size_t TrustedEnd(const std::vector<PsiFrameRecord>& known,
                                       std::size_t proven) {
    if (known.empty() || !Stands(known.front())) return 0;
    std::size_t end = known.size();
    for (std::size_t inRow = 0; end > 0 && inRow < proven;) {
      --end;
      inRow = Stands(known[end]) ? inRow + 1 : 0;
    }
    return end;
  }

  // The damage at `end` may begin within the frame ahead of it.
  void DropCutFrame(std::vector<PsiFrameRecord>& frames, std::uint64_t end) {
    if (frames.empty() || PlaceOf(frames.back()) + frames.back().Size() != end ||
        !source.EndsInZeros(PlaceOf(frames.back()))) {
      return;
    }
    unreadable += frames.back().Size();
    frames.pop_back();
  }

  // A whole frame with the format's marks, which older writers didn't set.
  [[nodiscard]] bool IsFrame(std::uint64_t position) {
    constexpr std::uint8_t kMarks = 0xC0;
    if (source.FaultAt(position) != nullptr) return false;
    const auto header = source.At(position, kPesHeaderSize).first<kPesHeaderSize>();
    return IsOlderFrame(header) || (DecodePesHeader(header).streamInfo & kMarks) == kMarks;
  }

  // Whether the record's frame is there.
  [[nodiscard]] bool Stands(const PsiFrameRecord& record) {
    if (!IsFrame(PlaceOf(record))) return false;
    PsiFrameRecord found = source.RecordAt(PlaceOf(record), dataStart);
    found.prev = record.prev;
    found.next = record.next;
    found.groupFrame = record.groupFrame;
    return found == record;
  }

  // Behind damage: the next frame that the old index knows, or the next one to be seen.
  [[nodiscard]] std::uint64_t Resume(std::uint64_t position,
                                     const std::vector<PsiFrameRecord>& known, std::size_t next) {
    const std::uint64_t seen = source.NextPlausible(position + kFrameAlignment);
    const auto standing = std::find_if(
        known.begin() + static_cast<std::ptrdiff_t>(next), known.end(),
        [&](const PsiFrameRecord& record) { return PlaceOf(record) >= seen || Stands(record); });
    return standing == known.end() ? seen : std::min(seen, PlaceOf(*standing));
  }

  FrameSource& source;
  const std::uint64_t dataStart;
};

// One recording on the bench.
class Repair {
 public:
  Repair(Platform& system, const std::string& media, const RepairOptions& wishes)
      : platform(system), path(media), index(IndexPath(media)), options(wishes) {}

  RepairResult Run() {
    if (!Load()) return result;
    FrameSource source(*mediaFile, mediaSize);
    FrameSearch search(source, head.DataStart());
    frames = search.Run(old->Records(), readable, closed ? kProvenIfClosed : kProvenRecords);
    if (source.Error() != 0) return Fail(source.Error());
    result.frames = frames.size();
    result.unreadable = search.unreadable;
    const PsiStreamRecords* const setup = Setup();  // ahead of the head, which it may restore
    const IndexImage image = MakeIndex(frames, setup, head.Named(), head.IsWideInput());
    result.runs = image.runCount;
    if (!options.force) {
      const bool done = readable && (closed || !options.finish);
      if (done && result.framesBefore == frames.size() && old->Holds(frames)) return result;
      if (!head.IsLost() && old->Is(image)) return result;  // better can't be had
      if (LosesFrames()) return End(RepairOutcome::WouldLose);
    }
    if (!WriteAside(image)) return result;
    Exchange();
    if (result.outcome != RepairOutcome::Repaired) DropAsides();
    return result;
  }

 private:
  RepairResult End(RepairOutcome outcome) {
    result.outcome = outcome;
    return result;
  }
  RepairResult Fail(int error) {
    result.error = error;
    return End(RepairOutcome::Failed);
  }

  // False when there is nothing to be done, or no way to do it.
  bool Load() {
    PutBack();
    int error = platform.mediaFiles.Open(path, OpenMode::Read, mediaFile);
    if (error == 0) error = mediaFile->Size(mediaSize);
    if (error != 0) {
      (void)Fail(error);
      return false;
    }
    if (mediaSize < kLeastMediaSize) return false;
    std::vector<std::byte> bytes;
    if (error = ReadWhole(platform.mediaFiles, index, bytes); error != 0) {
      (void)Fail(error);
      return false;
    }
    old.emplace(std::move(bytes));
    if (error = head.Read(*mediaFile); error != 0) {
      (void)Fail(error);
      return false;
    }
    PSReader reader(platform.mediaFiles);
    PsFileInfo info;
    readable = reader.Open(path) == kPsOk && reader.GetFileInfo(info) == kPsOk;
    if (reader.RefusedBySystem() != 0) {
      (void)Fail(reader.RefusedBySystem());
      return false;
    }
    if (readable) result.framesBefore = reader.GetFrameCount(kWholeFile);
    readable = readable && reader.HasIndex();
    closed = !reader.WasRecovered();
    return true;
  }

  // An exchange that a power cut interrupted: the old index is as good as ever.
  void PutBack() {
    if (IsGone(index) && Exists(OldIndexPath(index))) {
      (void)platform.durableFiles.Rename(OldIndexPath(index), index);
    }
    DropAsides();
  }
  void DropAsides() {
    for (const std::string& aside : {NewIndexPath(index), OldIndexPath(index)}) {
      if (Exists(aside)) (void)platform.durableFiles.Remove(aside);
    }
  }

  // What the streams were when the file began, by the old index or else by the sibling's.
  const PsiStreamRecords* Setup() {
    if (old->Setup() != nullptr && !head.IsLost()) return old->Setup();
    const std::string sibling = options.sibling ? options.sibling() : std::string();
    if (head.IsLost())
      head.Restore(platform.mediaFiles, sibling, frames, mediaFile.get(), options.fileInput);
    if (old->Setup() != nullptr || sibling.empty()) return old->Setup();
    std::vector<std::byte> bytes;
    if (ReadWhole(platform.mediaFiles, IndexPath(sibling), bytes) != 0) return nullptr;
    lent.emplace(std::move(bytes));
    return lent->Setup();
  }

  // Whether a reader could get more frames out of the pair as it is.
  bool LosesFrames() {
    if (!head.IsKnown()) {
      // Where frames begin isn't known either: what the index knows may be found again some day.
      result.framesBefore = old->Records().size();
      return result.framesBefore > frames.size();
    }
    if (result.framesBefore <= frames.size()) return false;
    PSReader reader(platform.mediaFiles);
    if (reader.Open(path) != kPsOk) return false;
    FrameSource source(*mediaFile, mediaSize);
    std::size_t intact = 0;
    for (std::uint32_t i = 0; i < reader.GetFrameCount(kWholeFile); ++i) {
      PSReadFrame frame;
      frame.index = i;
      if (reader.GetFrame(frame) == kPsOk && source.FaultAt(frame.fileOffset) == nullptr &&
          !source.EndsInZeros(frame.fileOffset)) {
        ++intact;
      }
    }
    return intact > frames.size();
  }

  bool WriteAside(const IndexImage& image) {
    const std::string target = NewIndexPath(index);
    const std::string_view content(reinterpret_cast<const char*>(image.bytes.data()),
                                   image.bytes.size());
    const auto written = platform.durableFiles.WriteNew(target, content);
    std::vector<std::byte> back;
    const int unread = ReadWhole(platform.mediaFiles, target, back);
    if (written.step == DurableFiles::WriteStep::Done && written.written == image.bytes.size() &&
        back == image.bytes) {
      return true;
    }
    (void)platform.durableFiles.Remove(target);
    (void)Fail(written.error != 0 ? written.error : unread != 0 ? unread : kRanShort);
    return false;
  }

  void Exchange() {
    const auto exchange = [this] {
      if (HasChanged()) {
        (void)End(RepairOutcome::Busy);
        return;
      }
      if (const int error = Swap(); error != 0) {
        (void)Fail(error);
      } else {
        (void)End(RepairOutcome::Repaired);
      }
    };
    if (!options.exclusively) {
      exchange();
    } else if (!options.exclusively(exchange)) {
      (void)End(RepairOutcome::Busy);
    }
  }

  bool HasChanged() {
    std::uint64_t media = 0, size = 0;
    if (FileSize(path, media) != 0 || media != mediaSize) return true;
    return (FileSize(index, size) != 0 ? 0 : size) != old->Size();
  }

  // The new index takes the place of the old one, which waits beside it until that is on disk.
  int Swap() {
    if (head.IsLost()) {
      int error = head.Write(platform.mediaFiles, path);
      if (error == 0) error = platform.diskSync.Finish(path);
      if (error != 0) return error;
    }
    DurableFiles& files = platform.durableFiles;
    const int moved = files.Rename(index, OldIndexPath(index));
    if (moved != 0 && !IsMissing(moved)) return moved;
    const int error = files.Rename(NewIndexPath(index), index);
    if (error != 0) {
      if (moved == 0) (void)files.Rename(OldIndexPath(index), index);
      return error;
    }
    if (moved == 0) (void)files.Remove(OldIndexPath(index));
    // Room may have been made of the recording meanwhile.
    if (IsGone(path)) (void)files.Remove(index);
    return 0;
  }

  Platform& platform;
  const std::string& path;
  const std::string index;
  const RepairOptions& options;
  RepairResult result;
  std::unique_ptr<MediaFile> mediaFile;
  std::uint64_t mediaSize = 0;
  MediaHead head;
  std::optional<OldIndex> old;
  std::optional<OldIndex> lent;  // of the sibling
  bool readable = false;         // the pair opens with its index
  bool closed = false;           // which tells its frames in its head
  std::vector<PsiFrameRecord> frames;
};

}  // namespace

bool LooksDamaged(MediaFiles& files, const std::string& mediaPath) {
  std::uint64_t size = 0;
  if (FileSize(mediaPath, size) != 0 || size < kLeastMediaSize) return false;
  PSReader reader(files);
  const int result = reader.Open(mediaPath);
  if (reader.RefusedBySystem() != 0) return false;
  PsFileInfo info;
  if (result != kPsOk || !reader.HasIndex() || reader.WasRecovered() ||
      reader.GetFileInfo(info) != kPsOk) {
    return true;
  }
  PSReadFrame last;
  last.index = reader.GetFrameCount(kWholeFile) - 1;
  // Media that end ahead of their index are no fault of the index.
  return reader.GetFrame(last) != kPsOk || last.fileOffset + last.size < size;
}

RepairResult RepairRecording(Platform& platform, const std::string& mediaPath,
                             const RepairOptions& options) {
  return Repair(platform, mediaPath, options).Run();
}

}  // namespace qv::kelvo
