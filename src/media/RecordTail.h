#pragma once

#include <array>
#include <cstdint>

#include "media/PsiFormat.h"

namespace qv::kelvo {

// The newest frame records of an index that is being written, encoded: links set in them and the
// records that they lead to reach the file in one write, together with what lies between. One
// thread at a time.
class RecordTail {
 public:
  // Holds at least this many of the newest records.
  static constexpr std::uint32_t kRecords = 32;
  // Records that one run may append.
  static constexpr std::uint32_t kRun = 64;

  // Forgets all; the next record is number 0.
  void Reset();

  // Makes room for kRun records: what is held stays held while they are appended.
  void BeginRun();
  // Takes the next record of the run.
  void Append(const PsiFrameRecord& record);
  // Takes back the records from number `index` on, all of them held.
  void CutTo(std::uint32_t index) { end = index; }

  // Number of the next record.
  [[nodiscard]] std::uint32_t End() const { return end; }
  [[nodiscard]] bool Holds(std::uint32_t index) const { return index >= first && index < end; }

  // Of a record that is held.
  [[nodiscard]] PsiFrameRecord Get(std::uint32_t index) const;
  void SetNext(std::uint32_t index, std::uint32_t next);
  // The bytes of the held record `index` and all behind it; valid until the next change.
  [[nodiscard]] ConstBytes From(std::uint32_t index) const;

 private:
  [[nodiscard]] std::size_t Place(std::uint32_t index) const {
    return std::size_t{index - first} * kPsiFrameRecordSize;
  }

  std::uint32_t first = 0;  // number of the first record held
  std::uint32_t end = 0;
  // More room than that, so that records move down only now and then.
  std::array<std::byte, (kRecords + 2 * kRun) * kPsiFrameRecordSize> bytes{};
};

}  // namespace qv::kelvo
