#include "media/RecordWindow.h"

#include <algorithm>

namespace qv::kelvo {

void RecordWindow::Reset(MediaFile* newFile, std::uint64_t newBase) {
  file = newFile;
  base = newBase;
  first = 0;
  held = 0;
  error = 0;
  nextRead = kFirstRead;
}

void RecordWindow::Preload(ConstBytes records) {
  bytes.assign(records.begin(), records.end());
  first = 0;
  held = records.size() / kPsiFrameRecordSize;
}

bool RecordWindow::Read(std::uint32_t index, PsiFrameRecord& record) {
  if (file == nullptr) return false;
  if (index < first || index >= first + held) {
    Load(index);
    if (index < first || index >= first + held) return false;
  }
  const auto at = static_cast<std::size_t>(index - first) * kPsiFrameRecordSize;
  record = DecodeFrame(ConstBytes(bytes).subspan(at).first<kPsiFrameRecordSize>());
  return true;
}

void RecordWindow::Load(std::uint32_t index) {
  const bool walksOn = held != 0 && (index == first + held || index + std::uint64_t{1} == first);
  const bool backward = index < first;
  nextRead = walksOn ? std::min(nextRead * 2, kLongestRead) : kFirstRead;
  const std::uint32_t ahead = backward ? std::min(index, nextRead - 1) : 0;
  bytes.resize(std::size_t{nextRead} * kPsiFrameRecordSize);
  first = index - ahead;
  const IoResult result =
      file->ReadAt(base + FrameRecordOffset(static_cast<std::uint32_t>(first)), bytes);
  error = result.error;
  held = error == 0 ? result.bytes / kPsiFrameRecordSize : 0;
}

}  // namespace qv::kelvo
