#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "media/PsiFormat.h"
#include "platform/MediaFile.h"

namespace qv::kelvo {

// What the index of a closed recording tells besides its frames, and the input byte of its head.
struct RunTable {
  struct Stream {
    std::uint8_t number = 0;
    PsiStreamRecord record;
  };
  PsiHeader header;
  std::vector<Stream> streams;  // those with frames, ascending
  std::vector<PsiRunRecord> runs;
  std::uint8_t fileInput = 0;
};

// The tables of the recordings that were closed or listed last, as long as their index files stay
// what they were. Any thread; no call waits for a disk.
class RunTables {
 public:
  using Table = std::shared_ptr<const RunTable>;

  static constexpr std::size_t kBytes = 64u << 20;
  // Holds about so many bytes at most; what was asked for the longest time ago goes first.
  explicit RunTables(std::size_t bytes = kBytes) : limit(bytes) {}

  struct Known {
    FileStamp stamp;  // of the index
    Table table;      // null: nothing is known
  };
  // The table of the recording `path`, as it was when its index had that stamp. The caller looks
  // whether it still has.
  [[nodiscard]] Known Find(const std::string& path);

  // Remembers a table that was good when the index had that stamp. A stamp that can't be told is
  // passed over.
  void Put(const std::string& path, const FileStamp& stamp, Table table);

 private:
  struct Entry {
    std::string path;
    FileStamp stamp;
    Table table;
    std::size_t bytes = 0;
  };
  void Forget(std::list<Entry>::iterator entry);

  const std::size_t limit;
  std::mutex lock;
  std::size_t used = 0;
  std::list<Entry> entries;  // the one asked for last in front
  std::unordered_map<std::string_view, std::list<Entry>::iterator> byPath;
};

}  // namespace qv::kelvo
