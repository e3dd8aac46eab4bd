#include "platform/Files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>

#include "platform/Native.h"

namespace qv::kelvo {

boost::filesystem::path NativePath(const std::string& path) {
  return path;
}

bool ClearReadOnly(const std::string&) {
  return false;
}

// Where a part of the path is a file, nothing stands behind it.
int FindKind(const std::string& path, FileKind& kind) {
  struct stat status {};
  kind = FileKind::Missing;
  if (stat(path.c_str(), &status) != 0) return IsMissing(errno) || errno == ENOTDIR ? 0 : errno;
  kind = S_ISREG(status.st_mode)   ? FileKind::File
         : S_ISDIR(status.st_mode) ? FileKind::Directory
                                   : FileKind::Other;
  return 0;
}

int FileSize(const std::string& path, std::uint64_t& bytes) {
  boost::system::error_code error;
  const std::uintmax_t size = boost::filesystem::file_size(path, error);
  bytes = error ? 0 : size;
  return error.value();
}

int MakeDirectory(const std::string& path) {
  constexpr mode_t kMode = 0755;
  if (mkdir(path.c_str(), kMode) == 0) return 0;
  const int error = errno;
  return error == EEXIST && IsDirectory(path) ? 0 : error;
}

int RemoveEmptyDirectory(const std::string& path) {
  // A separator at its end would lead through a link.
  const std::string bare = path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
  if (rmdir(bare.c_str()) == 0) return 0;
  const bool occupied = errno == EEXIST || errno == ENOTDIR || errno == EBUSY;
  return occupied ? ENOTEMPTY : errno;
}

bool IsBusy(int error) {
  return error == EBUSY || error == ETXTBSY || error == EWOULDBLOCK;
}

}  // namespace qv::kelvo
