#pragma once

#include "nvrhost/SearchSession.h"

namespace nvrhost {

struct PlayOptions {
  SearchOptions search;
  std::string exportPath;
  std::string ledger;
  bool complete = false;  // with the ledger: no given frame may be missing in between
  bool frames = false;
};
void AddPlayOptions(CLI::App& command, PlayOptions& options);

struct PlayTotals {
  std::uint64_t frames = 0, videoFrames = 0, bytes = 0;
  std::uint64_t announced = 0;  // frames by the result document
  std::uint64_t emptyFrames = 0, verified = 0, missing = 0;
  std::uint64_t exportedFrames = 0;
  std::int64_t firstMs = 0, lastMs = 0;
  bool good = true;  // nothing unreadable, unexpected, different or, if asked for, missing
};

// Plays a range and prints what came. Throws std::runtime_error.
PlayTotals PlayRange(PlayOptions options, const std::string& programPath);

// As the process's exit code: 0, or 1 when something isn't as it should be or nothing was found.
int Play(const PlayOptions& options, const std::string& programPath);

}  // namespace nvrhost
