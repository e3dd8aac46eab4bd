#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace qv::kelvo {

struct DirectoryEntry {
  std::string_view name;  // UTF-8, valid during the visit only; never "." or ".."
  bool isDirectory = false;
  std::uint64_t size = 0;  // 0 unless sizes were asked for, and for directories
};

enum class ListSizes { No, Yes };

// Lists directories by the fastest call of the platform: a tree of years has hundreds of thousands
// of names, and a look at each file would cost many times the listing. Any thread.
class Directories {
 public:
  virtual ~Directories() = default;

  // Calls `visit` for each entry of `path` whose name matches `pattern`, in no particular order,
  // until it returns false. Pipes, devices and the like are left out; a symbolic link counts as
  // what it leads to, a dangling one as an empty file. In the pattern `?` stands for one character
  // and `*` for any number; letters match without regard to case. Returns 0, also when nothing
  // matched, or the system's error number when the directory can't be read. The listing is closed
  // before it returns, but not yet while `visit` runs: don't remove `path` itself there.
  [[nodiscard]] virtual int List(const std::string& path, std::string_view pattern, ListSizes sizes,
                                 const std::function<bool(const DirectoryEntry&)>& visit) = 0;

  // A number that changes whenever an entry is added to the directory, removed or renamed. 0 when
  // it can't be told, or when the last change is so young that a further one might not show.
  [[nodiscard]] virtual std::uint64_t ChangeStamp(const std::string& path) = 0;
};

}  // namespace qv::kelvo
