#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <span>
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

// What is known of the hours that were recorded or listed last: the names in their directories, and
// the tables of their recordings. A client that scrolls its timeline asks for the same hours again
// and again; this way no recording is opened and no directory read twice. Nobody tells this memory
// of changes: everything has the stamp it had when it was read, and the caller looks whether it
// still has. It is kept by the hour since a search asks by the hour: one look-up, and then
// neighbours. Any thread; no call waits for a disk.
class RunTables {
 public:
  using Table = std::shared_ptr<const RunTable>;
  using Names = std::shared_ptr<const std::vector<std::string>>;

  static constexpr std::size_t kBytes = 64u << 20;  // some five days of 64 cameras
  // Holds about so many bytes at most; the hour asked for the longest time ago goes first.
  explicit RunTables(std::size_t bytes = kBytes) : limit(bytes) {}

  struct Known {
    FileStamp stamp;  // of the index
    Table table;      // null: nothing is known
  };
  // The tables of the recordings `names` in `directory`, which ends with a separator, as they were
  // when their indexes had those stamps.
  [[nodiscard]] std::vector<Known> Find(const std::string& directory,
                                        std::span<const std::string_view> names);
  // Remembers a table of the recording `path` that was good when its index had that stamp. A stamp
  // that can't be told is passed over.
  void Put(const std::string& path, const FileStamp& stamp, Table table);

  struct Listed {
    std::uint64_t stamp = 0;  // of the directory
    Names names;              // null: nothing is known
  };
  // The media files of `directory` as they were when it had that stamp.
  [[nodiscard]] Listed FindNames(const std::string& directory);
  void PutNames(const std::string& directory, std::uint64_t stamp, Names names);

 private:
  struct Entry {
    std::string name;
    Known known;
  };
  struct Hour {
    std::string directory;
    std::vector<Entry> entries;  // by name
    Listed listed;
    std::size_t bytes = 0;
  };
  // All with the lock held.
  Hour* FindHour(std::string_view directory);
  Hour& TakeHour(std::string_view directory);
  void Add(Hour& hour, std::size_t bytes);
  void Forget(std::list<Hour>::iterator hour);

  const std::size_t limit;
  std::mutex lock;
  std::size_t used = 0;
  std::list<Hour> hours;  // the one asked for last in front
  std::unordered_map<std::string_view, std::list<Hour>::iterator> byDirectory;
};

}  // namespace qv::kelvo
