#pragma once

#include <array>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/MediaFile.h"

namespace qv::kelvo {

enum class FileCall { Open, ReadAt, WriteAt, Size, SetSize, CreationTime, Close };
inline constexpr std::size_t kFileCalls = 7;

// Told when another program has the file for a moment.
#ifdef _WIN32
inline constexpr int kBusyError = 32;
#else
inline constexpr int kBusyError = EBUSY;
#endif

// What goes wrong, and when.
struct FileFault {
  FileCall call = FileCall::WriteAt;
  std::size_t first = 1;       // number of the call, from 1, counted from when the fault was set
  std::size_t times = 1;       // how many calls in a row; kForGood for all that follow
  int error = 0;               // the system's error number; nothing is done to the file
  std::size_t shortBytes = 0;  // with error 0, for ReadAt and WriteAt: only so many bytes are moved
  // Counts only files whose path ends so; empty: all but the settings and the drives' test files.
  std::string suffix;

  static constexpr std::size_t kForGood = std::numeric_limits<std::size_t>::max();
};

// Media files over others, whose calls fail on demand. Any thread.
class FaultyFiles : public MediaFiles {
 public:
  // `below` outlives this, and this outlives the files opened.
  explicit FaultyFiles(MediaFiles& below) : real(below) {}

  int Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) override;
  FileStamp StampOf(const std::string& path) override { return real.StampOf(path); }

  // Several faults may be set; the first that applies to a call decides.
  void Set(FileFault fault);
  void Fail(FileCall call, std::size_t nth, int error) { Set({call, nth, 1, error, 0, {}}); }
  void FailForGood(FileCall call, std::size_t nth, int error) {
    Set({call, nth, FileFault::kForGood, error, 0, {}});
  }
  void ClearFaults();

  // Runs before each call, outside any lock: may kill the process. Set it while no call runs.
  std::function<void(FileCall, const std::string& path)> before;

  [[nodiscard]] std::size_t Calls(FileCall call) const;
  [[nodiscard]] std::size_t FaultsFired() const;
  [[nodiscard]] std::size_t OpenFiles() const;  // neither closed nor destroyed
  // Until just so many are open: threads in the background open files too. False after 10 s.
  [[nodiscard]] bool WaitForOpenFiles(std::size_t count);

 private:
  friend class FaultyFile;
  struct Armed {
    FileFault fault;
    std::size_t seen = 0;
  };

  // Counts one call; returns what goes wrong with it, if anything does.
  std::optional<FileFault> Count(FileCall call, const std::string& path);
  void CountOpen(int change);

  MediaFiles& real;
  mutable std::mutex mutex;
  std::condition_variable openChanged;  // `open` has changed
  std::vector<Armed> faults;
  std::array<std::size_t, kFileCalls> calls{};
  std::size_t fired = 0;
  std::size_t open = 0;
};

}  // namespace qv::kelvo
