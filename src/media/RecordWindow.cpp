#include "media/RecordWindow.h"

namespace qv::kelvo {

void RecordWindow::Reset(MediaFile* newFile, std::uint64_t newBase) {
  file = newFile;
  base = newBase;
  first = 0;
  held = 0;
}

bool RecordWindow::Read(std::uint32_t index, PsiFrameRecord& record) {
  if (file == nullptr) return false;
  if (index < first || index >= first + held) {
    bytes.resize(kRecords * kPsiFrameRecordSize);
    // Aligned, so that a walk backward is served as well as one forward.
    const std::uint32_t start = index - index % kRecords;
    const IoResult result = file->ReadAt(base + FrameRecordOffset(start), bytes);
    first = start;
    held = result.error == 0 ? result.bytes / kPsiFrameRecordSize : 0;
    if (index >= first + held) return false;
  }
  const auto at = static_cast<std::size_t>(index - first) * kPsiFrameRecordSize;
  record = DecodeFrame(std::span<const std::byte>(bytes).subspan(at).first<kPsiFrameRecordSize>());
  return true;
}

}  // namespace qv::kelvo
