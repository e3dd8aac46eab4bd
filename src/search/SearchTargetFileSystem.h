#pragma once

#include "media/PSReader.h"
#include "search/FilePool.h"
#include "search/SearchRequest.h"
#include "tree/FileSystemBase.h"

namespace qvsvr::kelvo {

// The file system as one search sees it: the plug-in's, less what the request leaves out.
class SearchTargetFileSystem : public qv::kelvo::FileSystemBase {
 public:
  // Searches everything. Borrows both for its life; `fileSystem`'s lists are asked on the caller's
  // thread.
  SearchTargetFileSystem(qv::kelvo::FileSystemBase& fileSystem, qv::kelvo::Platform& system)
      : FileSystemBase(system), inner(fileSystem) {}

  // Narrows it down to the targets of a request.
  void Restrict(const SearchRequest& request);

  void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter* filter) override;
  void GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter* filter) override;

  // The target that a recording's frames can be had from; null for a local file.
  [[nodiscard]] std::shared_ptr<qvArchiving::IScanner> FindHolder(const std::string& path);
  // Opens a recording. One of a bucket whose local copy won't open, or has no index, is brought
  // down anew and opened once more. A result of PSReader.
  [[nodiscard]] int Open(qv::kelvo::PSReader& reader, const std::string& path);
  // The same for somebody who opens it later.
  void Mend(const std::string& path);

  // For the search's readers, however many there are.
  [[nodiscard]] qv::kelvo::MediaFiles& MediaFiles() { return pool; }

  // How far the frames of a file may lie from the moment in its name.
  [[nodiscard]] std::int64_t SlackSeconds() const { return inner.SlackSeconds(); }

 private:
  bool searchLocal = true;
  bool allArchives = true;
  qv::kelvo::ArchiveFilter archives;
  qv::kelvo::FileSystemBase& inner;
  FilePool pool{platform.mediaFiles};
};

}  // namespace qvsvr::kelvo
