#include "storage/RecordingRemoval.h"

#include "host/Log.h"
#include "platform/Files.h"
#include "platform/Platform.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::IsMissing;

// Tells a failure in the log; a file that is missing is none.
bool RemoveLogged(const std::string& path) {
  const int error = qv::kelvo::RemoveFile(path);
  if (error == 0 || IsMissing(error)) return true;
  LogPrintf(LogWarning, "remove %s, %d: %s", path.c_str(), error,
            qv::kelvo::ErrorText(error).c_str());
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
  // Media that somebody holds can be played as long as they have their index.
  if (!RemoveLogged(path)) return false;
  RemoveLogged(qv::kelvo::WithExtension(path, "psi"));
  // Few recordings have this companion, so its absence or failure is nothing to tell.
  const int error = qv::kelvo::RemoveFile(qv::kelvo::WithExtension(path, "psm"));
  if (error != 0 && !IsMissing(error)) return false;
  PruneEmptyParents(path, root);
  return true;
}

void PruneEmptyParents(const std::string& path, const std::string& root) {
  if (root.empty() || !path.starts_with(root)) return;
  std::string directory = path;
  for (StripLastPart(directory); directory.size() > root.size(); StripLastPart(directory)) {
    const int error = qv::kelvo::RemoveEmptyDirectory(directory);
    // Another thread may have removed it first.
    if (error == 0 || IsMissing(error)) continue;
    if (!qv::kelvo::IsNotEmpty(error)) {
      LogPrintf(LogWarning, "remove dir %s, %d: %s", directory.c_str(), error,
                qv::kelvo::ErrorText(error).c_str());
    }
    return;
  }
}

}  // namespace qvsvr::kelvo
