#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "nvrhost/Feeder.h"
#include "nvrhost/RecordingFile.h"

namespace nvrhost {

// What a run wrote into a directory: told apart from what lay there before.
class WrittenFiles {
 public:
  // Notes what is there.
  explicit WrittenFiles(std::string directory);
  // Reads the recordings that are new or changed since.
  [[nodiscard]] std::vector<RecordingFile> Read() const;

 private:
  struct State {
    std::uintmax_t size;
    std::time_t changed;
  };
  std::string directory;
  std::map<std::string, State> before;
};

struct RunTotals {
  double seconds = 0;  // from the first frame until the plug-in was unloaded
  std::uint64_t payloadBytes = 0;
  std::int64_t undecided = 0;  // buffers that the plug-in still held when it was closed
  std::int64_t outstanding = 0;
  std::int64_t badReleases = 0;
  std::uint64_t warnings = 0, errors = 0;  // log lines
};

// Prints the table of cameras and the totals. Returns whether everything adds up: no buffer is left
// or was released too often, and no camera has more frames on disk than were given.
bool PrintSummary(const std::vector<Camera>& cameras, const std::vector<RecordingFile>& files,
                  const RunTotals& totals);

}  // namespace nvrhost
