#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// CPU time so far, user and system, in nanoseconds.
[[nodiscard]] std::int64_t ProcessCpuNs();
[[nodiscard]] std::int64_t ThreadCpuNs();
[[nodiscard]] std::int64_t WallNs();

// Runs a program to its end and returns the CPU time it took, user and system, in nanoseconds.
// Spaces part the words of the command. Throws std::runtime_error if it can't be run or fails.
std::int64_t ChildCpuNs(const std::string& command);

// Resident memory of this process in MiB.
[[nodiscard]] double ResidentMiB();

// The middle value; of an even number, the lower of the two.
[[nodiscard]] double Median(std::vector<double> values);

// One line of the closing table. The line goes to standard output and, if the environment names a
// file in KELVO_BENCH_RESULTS, behind what is there.
enum class Wanted { AtMost, AtLeast, Below };
void Report(const std::string& figure, double measured, const std::string& unit, Wanted kind,
            double limit);

// All measurements work in the current directory, where a plug-in looks for its drives; run.sh
// makes it an empty one on the memory file system.

// Makes `drives/` with enough drives for `files` open recordings, each of which sets 1 GiB of a
// drive's free space aside; removes it with all it holds in the end.
class Drives {
 public:
  explicit Drives(int files);
  ~Drives();
  Drives(const Drives&) = delete;
  Drives& operator=(const Drives&) = delete;
};

// Writes and removes a file of `mebibytes`, so that the memory has been touched before anything is
// timed.
void WarmFileSystem(int mebibytes);

}  // namespace bench
