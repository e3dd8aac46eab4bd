#include "storage/RecordingRemoval.h"

#include <boost/filesystem.hpp>

#include "host/Log.h"
#include "platform/Platform.h"
#include "storage/DriveTable.h"

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

// Cuts the last part and its separator; empty when nothing is left.
void StripLastPart(std::string& path) {
  const std::size_t separator = path.find_last_of(qv::kelvo::kPathSeparators);
  path.resize(separator == std::string::npos ? 0 : separator);
}

}  // namespace

bool RemoveRecording(const std::string& path, std::size_t volumeDepth) {
  boost::filesystem::path file(path);
  const bool mediaGone = RemoveLogged(file);
  RemoveLogged(file.replace_extension("psi"));
  // Few recordings have this companion, so its absence or failure is nothing to tell.
  error_code companionError;
  boost::filesystem::remove(file.replace_extension("psm"), companionError);
  if (!mediaGone || companionError) return false;
  PruneEmptyParents(path, volumeDepth);
  return true;
}

void PruneEmptyParents(const std::string& path, std::size_t volumeDepth) {
  std::string directory = path;
  StripLastPart(directory);
  for (std::size_t parts = CountPathParts(directory); parts > volumeDepth; --parts) {
    error_code error;
    boost::filesystem::remove(directory, error);
    if (error) {
      if (error != boost::system::errc::directory_not_empty) {
        LogPrintf(LogWarning, "remove dir %s, %d: %s", directory.c_str(), error.value(),
                  error.message().c_str());
      }
      return;
    }
    StripLastPart(directory);
  }
}

}  // namespace qvsvr::kelvo
