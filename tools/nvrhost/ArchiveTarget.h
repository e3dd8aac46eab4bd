#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "archiving/IScanner.h"
#include "hostkit/SimHost.h"

namespace nvrhost {

// A bucket as the user names it.
struct ArchiveOptions {
  std::string address;  // bucket.s3.region.domain; empty: none
  std::string user, password;
  std::string copies = "copies";  // where local copies lie, below the working directory

  [[nodiscard]] bool Given() const { return !address.empty(); }
};
void AddArchiveOptions(CLI::App& command, ArchiveOptions& options);

// The S3 library's start and end, which are the duty of whoever owns the process. Made before and
// destroyed after all scanners, the plug-in's among them.
class S3Library {
 public:
  S3Library();
  ~S3Library();
  S3Library(const S3Library&) = delete;
  S3Library& operator=(const S3Library&) = delete;
};

// The plug-in's own scanner of the bucket, used outside the plug-in. In the working directory.
// Throws std::runtime_error.
[[nodiscard]] std::shared_ptr<qvArchiving::IScanner> OpenArchive(const ArchiveOptions& options);

// Tells an opened plug-in of the bucket and returns when it has taken it over. Throws
// std::runtime_error.
void AnnounceArchive(hostkit::SimHost& host, const ArchiveOptions& options);

// Paths that the bucket's recordings would have below `copies`, by walking its hours. Of each
// stream the first one's head is brought down. Throws std::runtime_error when there is none.
[[nodiscard]] std::vector<std::string> FindArchived(const ArchiveOptions& options);

}  // namespace nvrhost
