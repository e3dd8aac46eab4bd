#pragma once

#include "nvrhost/ArchiveTarget.h"

namespace nvrhost {

struct UploadOptions {
  ArchiveOptions archive;
  std::string directory = "nvrdata";
  std::string day;          // YYYY-MM-DD, local
  bool unfinished = false;  // also a day that isn't over
  std::string logLevel = "warning";
};
void AddUploadOptions(CLI::App& command, UploadOptions& options);

// Uploads a day's recordings through the plug-in's own scanner; those that are there with their
// size are left alone. Returns the process's exit code: 0 if all is there, 1 if a file failed.
// Throws std::runtime_error.
int Archive(const UploadOptions& options);

}  // namespace nvrhost
