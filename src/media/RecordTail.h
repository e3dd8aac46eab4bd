#pragma once

#include <array>
#include <cstdint>

#include "media/PsiFormat.h"

namespace qv::kelvo {

// The newest frame records of an index that is being written, encoded: a link set in one of them
// and the record that it leads to reach the file in one write, together with what lies between. One
// thread at a time.
class RecordTail {
 public:
  // Holds at least this many of the newest records.
  static constexpr std::uint32_t kRecords = 32;

  // Forgets all; the next record is number 0.
  void Reset();

  // Takes the next record.
  void Append(const PsiFrameRecord& record);
  // Takes back the one appended last.
  void RemoveLast();

  [[nodiscard]] bool Holds(std::uint32_t index) const { return index >= first && index < end; }

  // Of a record that is held.
  void SetNext(std::uint32_t index, std::uint32_t next);
  // The bytes of the held record `index` and all behind it; valid until the next change.
  [[nodiscard]] ConstBytes From(std::uint32_t index) const;

 private:
  [[nodiscard]] std::size_t Place(std::uint32_t index) const {
    return std::size_t{index - first} * kPsiFrameRecordSize;
  }

  std::uint32_t first = 0;  // number of the first record held
  std::uint32_t end = 0;    // number of the next record
  // Twice the room, so that records move down only once in kRecords.
  std::array<std::byte, std::size_t{2} * kRecords * kPsiFrameRecordSize> bytes{};
};

}  // namespace qv::kelvo
