#include "media/RecordTail.h"

#include <algorithm>

namespace qv::kelvo {

void RecordTail::Reset() {
  first = end = 0;
}

void RecordTail::Append(const PsiFrameRecord& record) {
  if (Place(end) == bytes.size()) {
    const std::uint32_t kept = end - kRecords;
    std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(Place(kept)), bytes.end(), bytes.begin());
    first = kept;
  }
  Encode(record, std::span(bytes).subspan(Place(end)).first<kPsiFrameRecordSize>());
  ++end;
}

void RecordTail::RemoveLast() {
  --end;
}

void RecordTail::SetNext(std::uint32_t index, std::uint32_t next) {
  const auto place = std::span(bytes).subspan(Place(index)).first<kPsiFrameRecordSize>();
  PsiFrameRecord record = DecodeFrame(place);
  record.next = next;
  Encode(record, place);
}

ConstBytes RecordTail::From(std::uint32_t index) const {
  return ConstBytes(bytes).subspan(Place(index), Place(end) - Place(index));
}

}  // namespace qv::kelvo
