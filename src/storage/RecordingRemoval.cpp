#include "storage/RecordingRemoval.h"

#include <boost/filesystem.hpp>

#include "host/Log.h"
#include "platform/Platform.h"

namespace qvsvr::kelvo {
namespace {

using boost::system::error_code;

bool RemoveLogged(const boost::filesystem::path& path) {
  error_code error;
  boost::filesystem::remove(path, error);
  if (!error) return true;
  LogPrintf(LogWarning, "remove %s, %d: %s", path.string().c_str(), error.value(),
            error.message().c_str());
  return false;
}

// Cuts the last part and the separators ahead of it.
void StripLastPart(std::string& path) {
  const std::size_t separator = path.find_last_of(qv::kelvo::kPathSeparators);
  path.resize(separator == std::string::npos ? 0 : separator);
  while (!path.empty() && qv::kelvo::IsPathSeparator(path.back())) path.pop_back();
}

}  // namespace

bool RemoveRecording(const std::string& path, const std::string& root) {
  boost::filesystem::path file(path);
  const bool mediaGone = RemoveLogged(file);
  RemoveLogged(file.replace_extension("psi"));
  // Few recordings have this companion, so its absence or failure is nothing to tell.
  error_code companionError;
  boost::filesystem::remove(file.replace_extension("psm"), companionError);
  if (!mediaGone || companionError) return false;
  PruneEmptyParents(path, root);
  return true;
}

void PruneEmptyParents(const std::string& path, const std::string& root) {
  if (root.empty() || !path.starts_with(root)) return;
  std::string directory = path;
  for (StripLastPart(directory); directory.size() > root.size(); StripLastPart(directory)) {
    const error_code error(qv::kelvo::RemoveEmptyDirectory(directory),
                           boost::system::system_category());
    // Another thread may have removed it first.
    if (!error || error == boost::system::errc::no_such_file_or_directory) continue;
    if (error != boost::system::errc::directory_not_empty) {
      LogPrintf(LogWarning, "remove dir %s, %d: %s", directory.c_str(), error.value(),
                error.message().c_str());
    }
    return;
  }
}

}  // namespace qvsvr::kelvo
