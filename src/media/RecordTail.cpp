#include "media/RecordTail.h"

#include <algorithm>

namespace qv::kelvo {

void RecordTail::Reset() {
  first = end = 0;
}

void RecordTail::BeginRun() {
  if (Place(end) + kRun * kPsiFrameRecordSize <= bytes.size()) return;
  const std::uint32_t kept = end - kRecords;
  std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(Place(kept)),
            bytes.begin() + static_cast<std::ptrdiff_t>(Place(end)), bytes.begin());
  first = kept;
}

void RecordTail::Append(const PsiFrameRecord& record) {
  Encode(record, std::span(bytes).subspan(Place(end)).first<kPsiFrameRecordSize>());
  ++end;
}

PsiFrameRecord RecordTail::Get(std::uint32_t index) const {
  return DecodeFrame(std::span(bytes).subspan(Place(index)).first<kPsiFrameRecordSize>());
}

void RecordTail::SetNext(std::uint32_t index, std::uint32_t next) {
  PsiFrameRecord record = Get(index);
  record.next = next;
  Encode(record, std::span(bytes).subspan(Place(index)).first<kPsiFrameRecordSize>());
}

ConstBytes RecordTail::From(std::uint32_t index) const {
  return ConstBytes(bytes).subspan(Place(index), Place(end) - Place(index));
}

}  // namespace qv::kelvo
