#pragma once

#include <string>
#include <vector>

#include "nvrhost/RecordingFile.h"

namespace nvrhost {

// "1.5 GB", "20.0 MB", "600 B": decimal units.
[[nodiscard]] std::string SizeText(std::uint64_t bytes);
// Local time with milliseconds.
[[nodiscard]] std::string TimeText(std::int64_t utcMs);

// The tree with what each file holds, to standard output. Paths are shown relative to `base`.
void PrintTree(const std::vector<RecordingFile>& files, const std::string& base);

// One line for each stream of each file, for scripts, with a heading.
void PrintCsv(const std::vector<RecordingFile>& files);

}  // namespace nvrhost
