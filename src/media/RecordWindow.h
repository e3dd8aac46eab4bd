#pragma once

#include <cstdint>
#include <vector>

#include "media/PsiFormat.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// The frame records of an index file, read many at a time. Serves walks in both directions; a jump
// costs one read. The file may grow meanwhile: what a short read missed is asked for again. One
// thread at a time.
class RecordWindow {
 public:
  // Forgets what it holds and reads from `file` from now on, where the index begins at `base`. Null
  // for none; borrowed until the next Reset.
  void Reset(MediaFile* file, std::uint64_t base);

  // Takes the first records of the file, which somebody has read already.
  void Preload(ConstBytes records);

  // Record number `index`, valid or not. False when the file has no such record (yet) or the read
  // fails.
  [[nodiscard]] bool Read(std::uint32_t index, PsiFrameRecord& record);

  // Of the last read; 0 also for a short one.
  [[nodiscard]] int Error() const { return error; }

 private:
  // A walk that goes on reads more each time, so that a look at one record stays cheap.
  static constexpr std::uint32_t kFirstRead = 64;
  static constexpr std::uint32_t kLongestRead = 2048;

  void Load(std::uint32_t index);

  MediaFile* file = nullptr;
  std::uint64_t base = 0;
  std::uint64_t first = 0;  // number of the first record held
  std::size_t held = 0;     // whole records held
  int error = 0;
  std::uint32_t nextRead = kFirstRead;
  std::vector<std::byte> bytes;
};

}  // namespace qv::kelvo
