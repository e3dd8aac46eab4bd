#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <ctime>
#include <memory>

#include "platform/Native.h"
#include "platform/posix/Posix.h"

namespace qv::kelvo {

namespace {

// File systems stamp changes with clocks as coarse as two seconds: a second change within that time
// might leave the same stamp.
constexpr std::time_t kSettledSeconds = 3;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

bool IsFileOrDirectory(const struct stat& status) {
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

// Fills the kind and size of an entry; false for one that isn't told of, or has vanished meanwhile.
bool Describe(int directory, const dirent& found, ListSizes sizes, DirectoryEntry& entry) {
  entry.isDirectory = found.d_type == DT_DIR;
  if (entry.isDirectory || (found.d_type == DT_REG && sizes == ListSizes::No)) return true;
  if (found.d_type != DT_REG && found.d_type != DT_LNK && found.d_type != DT_UNKNOWN) return false;

  struct stat status {};
  if (fstatat(directory, found.d_name, &status, 0) == 0) {
    entry.isDirectory = S_ISDIR(status.st_mode);
    entry.size = entry.isDirectory ? 0 : static_cast<std::uint64_t>(status.st_size);
    return IsFileOrDirectory(status);
  }
  return fstatat(directory, found.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool IsSelfOrParent(std::string_view name) {
  return name == "." || name == "..";
}

class DirectoriesOnPosix : public Directories {
 public:
  int List(const std::string& path, std::string_view pattern, ListSizes sizes,
           const std::function<bool(const DirectoryEntry&)>& visit) override {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    if (directory == nullptr) return errno;
    for (;;) {
      errno = 0;
      const dirent* found = readdir(directory.get());
      if (found == nullptr) return errno;
      DirectoryEntry entry;
      entry.name = found->d_name;
      if (IsSelfOrParent(entry.name) || !MatchesPattern(entry.name, pattern)) continue;
      if (!Describe(dirfd(directory.get()), *found, sizes, entry)) continue;
      if (!visit(entry)) return 0;
    }
  }

  std::uint64_t ChangeStamp(const std::string& path) override {
    struct stat status {};
    timespec now{};
    if (stat(path.c_str(), &status) != 0 || clock_gettime(CLOCK_REALTIME, &now) != 0) return 0;
    const timespec& changed = status.st_mtim;
    const bool settled = now.tv_sec - changed.tv_sec > kSettledSeconds;
    if (!settled || !S_ISDIR(status.st_mode)) return 0;
    return static_cast<std::uint64_t>(changed.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(changed.tv_nsec);
  }
};

}  // namespace

Directories& PosixDirectories() {
  static DirectoriesOnPosix directories;
  return directories;
}

}  // namespace qv::kelvo
