#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "nvrhost/StorageOptions.h"

namespace nvrhost {

struct StorageCommandOptions {
  std::string plugin;
  std::string directory = "nvrdata";
  std::string logLevel = "warning";
  bool events = false;
  StorageOptions storage;
};
void AddStorageCommandOptions(CLI::App& command, StorageCommandOptions& options);

// Opens the plug-in on a directory, sets what is asked and shows the drives. Returns the process's
// exit code: 0, or 1 when a drive has an alarm. Throws std::runtime_error.
int Storage(const StorageCommandOptions& options, const std::string& programPath);

}  // namespace nvrhost
