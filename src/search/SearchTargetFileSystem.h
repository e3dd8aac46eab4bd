#pragma once

#include "media/PSReader.h"
#include "search/FilePool.h"
#include "search/SearchRequest.h"
#include "tree/FileSystemBase.h"

namespace qvsvr::kelvo {

// The file system as one search sees it: the plug-in's, less what the request leaves out. Made for
// one search and used on its thread. What it asks of the plug-in's are immutable lists; what it
// holds, the pool of files and the bookings of buckets, is its own.
class SearchTargetFileSystem : public qv::kelvo::FileSystemBase {
 public:
  // Searches everything. Borrows all for its life; `fileSystem`'s lists are asked on the caller's
  // thread. `tables`, what is known from before, may be null.
  SearchTargetFileSystem(qv::kelvo::FileSystemBase& fileSystem, qv::kelvo::Platform& system,
                         qv::kelvo::RunTables* tables = nullptr)
      : FileSystemBase(system, tables), inner(fileSystem) {}

  // Narrows it down to the targets and the time of a request.
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

  // What is known of closed recordings in `directory` without opening them: for each of `names` its
  // table, or null.
  [[nodiscard]] std::vector<qv::kelvo::RunTables::Table> FindTables(
      const std::string& directory, std::span<const std::string_view> names);
  // Remembers what `reader` has open under `path`.
  void KeepTable(const std::string& path, qv::kelvo::PSReader& reader);

  void NoteUnreadable(const std::string& path) override { inner.NoteUnreadable(path); }
  // The same for a recording that `reader` has read, if it is a local one and damaged.
  void NoteDamage(const qv::kelvo::PSReader& reader, const std::string& path);

  // For a reader that lets go of one file before it opens the next.
  [[nodiscard]] qv::kelvo::MediaFiles& SingleFiles() { return platform.mediaFiles; }
  // For readers side by side, however many there are.
  [[nodiscard]] qv::kelvo::MediaFiles& MediaFiles() { return pool; }

  // How far the frames of a file may lie from the moment in its name.
  [[nodiscard]] std::int64_t SlackSeconds() const { return inner.SlackSeconds(); }

 private:
  bool searchLocal = true;
  bool allArchives = true;
  qv::kelvo::ArchiveFilter archives;
  std::shared_ptr<const void> held;  // the recordings that the search may read
  qv::kelvo::FileSystemBase& inner;
  FilePool pool{platform.mediaFiles};
};

}  // namespace qvsvr::kelvo
